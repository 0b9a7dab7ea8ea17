#pragma once

#include <map>

#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// The applications of an installation and whether each is enabled. An application is disabled
// when its app.conf says "state = disabled" in [install], local/ over default/. That is our
// reading of where the enabled state lives; the conf readers only need whether an application
// exists and is enabled. "system" always is.
class ApplicationTable {
  public:
    ApplicationTable() = default;
    // Lists the applications of both directories; an application of the first wins a name
    // that both hold.
    ApplicationTable(const Pathname& appsDirectory, const Pathname& deployedAppsDirectory);

    bool isEnabled(StrSegment app) const;
    bool exists(StrSegment app) const;
    size_t size() const { return enabled_.size(); }

  private:
    void addApplications(const Pathname& directory);
    std::map<Str, bool, std::less<>> enabled_;
};

}  // namespace morvax
