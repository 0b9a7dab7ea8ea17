#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimHost.h"
#include "wmi/sim/SimInstance.h"

namespace morvax::wmi {

// The classes of this machine: Win32_OperatingSystem, Win32_ComputerSystem, Win32_Processor,
// Win32_Process, Win32_LogicalDisk and the formatted memory and processor counters, with the
// property names and CIM types Windows gives them, filled from the running system at each query.
// Where the platform has WMI of its own, that is the host and this world is empty.
class SimHostWorld {
  public:
    // A row as the machine gives it: values by property name, as plain numbers and text that the
    // class's types then shape.
    using Row = std::vector<std::pair<const char16_t*, Variant>>;

    // Whether this platform fills a host world at all.
    static bool available();
    // Adds the classes to root\cimv2 of `host` (classes the world declares itself win) and the
    // empty event logs Application, System and Security where the world has none of that name.
    static void addTo(SimHost& host);
    // The instances of a class that addTo added, as of now.
    static void fill(const std::shared_ptr<const SimClass>& cls,
                     std::vector<std::shared_ptr<const SimInstance>>& out);

  private:
    static std::vector<std::shared_ptr<const SimClass>> classes();
    // Platform part: the rows of one of the classes.
    static void rows(const std::u16string& className, std::vector<Row>& out);
};

}  // namespace morvax::wmi
