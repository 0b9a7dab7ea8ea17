#pragma once

namespace morvax {

// The frame of the runs that do real work: logging, the installation, crash reports, the main
// thread, then the one-shot query or the service. Returns the exit status.
int runService();

}  // namespace morvax
