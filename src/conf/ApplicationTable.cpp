#include "conf/ApplicationTable.h"

#include <vector>

#include "conf/IniFile.h"

namespace morvax {

namespace {

// The state an app.conf gives, local over default; enabled when neither says.
bool readEnabled(const Pathname& appDirectory) {
    for (const char* layer : {"local", "default"}) {
        const Pathname file = Pathname::join(Pathname::join(appDirectory, layer), "app.conf");
        if (file.exists() != Pathname::REGULAR_FILE) {
            continue;
        }
        IniFile ini(file);
        const Str* state = ini.value(Str("install"), Str("state"));
        if (state != nullptr) {
            return state->view() != "disabled";
        }
    }
    return true;
}

}  // namespace

ApplicationTable::ApplicationTable(const Pathname& appsDirectory,
                                   const Pathname& deployedAppsDirectory) {
    addApplications(appsDirectory);
    addApplications(deployedAppsDirectory);
}

void ApplicationTable::addApplications(const Pathname& directory) {
    std::vector<WStr> names;
    if (directory.empty() || !directory.listDirectory(names)) {
        return;
    }
    for (const WStr& name : names) {
        const Pathname appDirectory = Pathname::join(directory, name);
        Str app = Str::fromWide(name);
        if (app.empty() || app[0] == '.' || !appDirectory.isDirectory() ||
            enabled_.count(app.view()) != 0) {
            continue;
        }
        enabled_.emplace(std::move(app), readEnabled(appDirectory));
    }
}

bool ApplicationTable::isEnabled(StrSegment app) const {
    if (app.view() == "system") {
        return true;
    }
    auto found = enabled_.find(app.view());
    return found != enabled_.end() && found->second;
}

bool ApplicationTable::exists(StrSegment app) const {
    return app.view() == "system" || enabled_.count(app.view()) != 0;
}

}  // namespace morvax
