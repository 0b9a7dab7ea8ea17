#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "util/base/Str.h"
#include "util/thread/Mutex.h"
#include "wmi/sim/SimWorld.h"

namespace morvax::wmi {

// Reads <directory>/world.json into a SimWorld, and reads it again whenever its modification
// time changes. Without a directory the world is this machine alone. A world file that is not
// JSON gives an empty world and a report with file and line; a bad part of a good file is
// reported and left out. One loader serves a locator and all its services, from any thread.
class SimWorldLoader {
  public:
    explicit SimWorldLoader(std::filesystem::path directory);

    // Takes in a changed world file.
    void refresh();
    std::shared_ptr<const SimWorld> world() const;

    const std::filesystem::path& directory() const { return directory_; }

    // The record file of event log `log` of the host the world names `hostKey`:
    // <directory>/eventlogs/<hostKey>/<log>.jsonl, so host "." has its logs in eventlogs/ itself.
    static std::filesystem::path eventLogFile(const std::filesystem::path& directory,
                                              const std::u16string& hostKey,
                                              const std::u16string& log);

  private:
    struct Stamp {
        bool exists = false;
        std::filesystem::file_time_type time{};
        uint64_t size = 0;
        bool operator==(const Stamp& other) const = default;
    };

    Stamp stamp() const;
    bool readFile(std::string& text) const;
    // The world of `text`: with no directory this machine's, with no text an empty one.
    std::shared_ptr<SimWorld> load(const std::string* text);
    std::shared_ptr<SimEventLog> eventLog(SimEventLog::Setup setup);

    std::filesystem::path directory_;
    std::filesystem::path file_;
    mutable Mutex mutex_;
    Stamp stamp_;
    Stamp unreadable_;
    uint64_t unreadableSinceMs_ = 0;
    bool unreadableReported_ = false;
    std::shared_ptr<const SimWorld> world_;
    // Logs and the event file outlive a reading, so that a new world file does not read every
    // log again.
    std::map<std::u16string, std::shared_ptr<SimEventLog>> logs_;
    std::shared_ptr<SimJsonlFile> events_;
};

}  // namespace morvax::wmi
