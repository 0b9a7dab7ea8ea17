#pragma once

#include "util/base/Str.h"

namespace morvax {

// One query on the primary thread, through the same connection, factory, handler and processor
// as the service run, with a connector that waits and a policy that tries once. Returns when the
// query has been read, has failed, or (a notification query) a console event stops it.
void runOneShot(Str wql, Str nameSpace, bool notification);

}  // namespace morvax
