#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "util/io/Pathname.h"

namespace morvax::cmdlinetest {

// A fresh directory named by MORVAX_DB while the object lives, read into the process's
// installation record. Removed afterwards, with the old variable put back.
class ScopedDatabaseDirectory {
  public:
    ScopedDatabaseDirectory();
    ~ScopedDatabaseDirectory();
    ScopedDatabaseDirectory(const ScopedDatabaseDirectory&) = delete;
    ScopedDatabaseDirectory& operator=(const ScopedDatabaseDirectory&) = delete;

    const std::filesystem::path& root() const { return root_; }
    // The expected path below the directory, given with '/' separators.
    Pathname pathname(const std::string& relative) const;

  private:
    std::filesystem::path root_;
    std::optional<std::string> oldValue_;
};

}  // namespace morvax::cmdlinetest
