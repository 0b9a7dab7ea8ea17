#pragma once

#include <memory>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax {

// One query on the primary thread, through the same connection, factory, handler and processor
// as the service run, with a connector that waits and a policy that tries once. Returns when the
// query has been read, has failed, or (a notification query) a console event stops it.
void runOneShot(Str wql, Str nameSpace, bool notification);

// The locator of the chosen provider; a failure is told on standard error and ends the process.
std::unique_ptr<wmi::Locator> createWMILocator();

}  // namespace morvax
