#pragma once

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "util/base/Str.h"
#include "util/io/FileHandle.h"
#include "util/io/Pathname.h"
#include "util/log/LogConfiguration.h"
#include "util/log/Logger.h"

namespace morvax::test {

// A fresh directory below the system's temporary directory, removed afterwards.
class TempDirectory {
  public:
    explicit TempDirectory(const std::string& name);
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    // The directory, and a path below it given with '/' separators, in the native form.
    const std::string& text() const { return text_; }
    std::string path(const std::string& relative) const;
    Pathname pathname(const std::string& relative) const;

  private:
    std::filesystem::path root_;
    std::string text_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);
// The same, making the missing directories of the path first.
void writeFileMakingDirectories(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);
void makeDirectories(const std::string& path);

// Puts the log system back to its state before any configuration when it goes.
class LogReset {
  public:
    LogReset() = default;
    ~LogReset() { LogConfiguration::reset(); }
    LogReset(const LogReset&) = delete;
    LogReset& operator=(const LogReset&) = delete;
};

// Sends the process's standard error into a file while it lives.
class StandardErrorCapture {
  public:
    explicit StandardErrorCapture(const std::string& path);
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    // Restores standard error and returns what was written meanwhile.
    std::string finish();

  private:
    // Platform parts.
    void redirect();
    void restore();

    std::string path_;
    FileHandle::Native saved_ = FileHandle::INVALID;
    bool active_ = false;
};

}  // namespace morvax::test
