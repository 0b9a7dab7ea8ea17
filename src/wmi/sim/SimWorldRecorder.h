#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax::wmi {

// Records what a WMI provider answers for one namespace as a world of the simulated provider:
// <directory>/world.json with each class (its superclass, the CIM type of each property, the
// values of its instances) and the records of event logs in the files the world names for them.
// It works through the WMI layer alone, so a world recorded from one provider can be recorded
// again from the simulated one and the two compared. Whatever fails, or cannot be held by a
// world, is reported in one line and the rest recorded; every file is written whole or not at
// all (through a temporary file renamed over it), so the world always loads.
class SimWorldRecorder {
  public:
    struct Options {
        std::u16string directory;
        // A namespace path, with or without a server; a server becomes a host of that name.
        std::u16string nameSpace;
        // None: every class of the namespace that is not abstract.
        std::vector<std::u16string> classes;
        std::vector<std::u16string> eventLogs;
        // Instances per class and records per log.
        size_t limit = 1000;
    };
    using Report = std::function<void(const Str& line)>;

    SimWorldRecorder(Locator& locator, Options options, Report report);
    ~SimWorldRecorder();
    SimWorldRecorder(const SimWorldRecorder&) = delete;
    SimWorldRecorder& operator=(const SimWorldRecorder&) = delete;

    // Records and writes the world. False when a WMI call or a write failed.
    bool run();

  private:
    struct Property {
        std::u16string name;
        int32_t cimType = CIM_EMPTY;
        HRESULT typeFailure = WBEM_S_NO_ERROR;
    };
    struct Class {
        std::u16string name;
        bool hasSuperclass = false;
        std::u16string superclass;
        std::vector<Property> properties;
        // One value per property, in the order of `properties`; shorter rows end in nulls.
        std::vector<std::vector<Variant>> instances;
    };
    struct Log {
        std::u16string name;
        bool descending = true;
        std::vector<std::string> lines;
    };

    bool listClasses(Services& services, std::vector<std::u16string>& out);
    void recordClass(Services& services, const std::u16string& name);
    void readValues(ClassObject& object, Class& cls, std::vector<Variant>& row);
    void recordLog(Services& services, const std::u16string& name);
    bool write(const Str& hostKey, const Str& nameSpaceKey, HRESULT connectFailure);
    // The event-log files, then world.json.
    bool writeFiles(const Str& hostKey, const std::string& world);

    void fail(const std::u16string& where, const char* step, HRESULT hr);
    void note(const Str& line);
    // True the first time it is asked about `key`: a value that fails in every instance costs
    // one line.
    bool firstReport(const std::u16string& key);

    Locator& locator_;
    Options options_;
    Report report_;
    bool ok_ = true;
    std::vector<Class> classes_;
    std::vector<Log> logs_;
    std::vector<std::u16string> reported_;
};

}  // namespace morvax::wmi
