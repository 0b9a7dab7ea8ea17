#pragma once

#include <map>
#include <memory>
#include <vector>

#include "conf/ConfSettings.h"
#include "conf/ConfUserContext.h"
#include "conf/IConfPathMapper.h"
#include "util/thread/Mutex.h"

namespace morvax {

// The layers of a configuration root, as the bootstrap file lists them: one group per entry of
// [bootstrap], in the order of the file, each group its directories in path order. That order
// is the precedence of a read: first highest.
class ConfPathMapperManager {
  public:
    enum Mode { ALL_ENTRIES = 0, NO_USER_ENTRIES = 1, USER_ENTRIES_ONLY = 2 };

    struct Directories {
        Pathname etc;
        Pathname apps;          // $apps-base$
        Pathname deployedApps;  // $apps-slave$
    };

    ConfPathMapperManager(const Directories& directories, const ConfSettings& settings,
                          Mode mode = ALL_ENTRIES);

    // False when an entry named a handler that does not exist.
    bool setupSucceeded() const { return succeeded_; }
    // Every mapper, group by group, copied under the lock.
    std::vector<std::shared_ptr<IConfPathMapper>> mappers() const;

  private:
    using Group = std::map<WStr, std::shared_ptr<IConfPathMapper>>;

    void runEntry(const Str& pathTemplate, const Str& handler, Group& group);
    Str expandTemplate(const Str& pathTemplate) const;
    void expandWildcards(const Pathname& base, const std::vector<Str>& components, size_t next,
                         std::vector<Pathname>& out) const;
    ConfUserContext ownerOf(const Pathname& directory, Str& app) const;

    Directories directories_;
    Mode mode_;
    bool succeeded_ = true;
    mutable Mutex mutex_;
    std::vector<Group> groups_;
};

}  // namespace morvax
