#pragma once

namespace morvax {

// The built-in check of the collector against this machine, in five parts: the connection
// factory, the configuration, the connection manager, the schedule policies and the query
// analysis. Results go to standard output, complaints to standard error. Returns 0; the first
// two checks end the process themselves when they fail.
int runSelfTest();

}  // namespace morvax
