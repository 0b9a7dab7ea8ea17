#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "storage/PersistentStorage.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"
#include "util/thread/Mutex.h"
#include "util/time/Timeval.h"

namespace morvax {

// How far each event log has been read, across restarts: a map of text keys to text values in
// memory, written to one flat file ("key=value" and LF per entry, in key order) at most once per
// sync interval and at the end. A checkpoint store of an older installation, the database
// "wmi_checkpoint", is taken over once, when the file does not exist yet. One lock guards it all.
class WMICheckpointer {
  public:
    WMICheckpointer();
    ~WMICheckpointer();
    WMICheckpointer(const WMICheckpointer&) = delete;
    WMICheckpointer& operator=(const WMICheckpointer&) = delete;

    // Reads the file, or makes it (migrating the old store); false with the reason logged.
    bool init(uint64_t syncIntervalMilliseconds, const Pathname& checkpointPath);
    // The value of `key`, empty when there is none; always true.
    bool get(const Str& key, Str& value);
    // Sets the value and, once the interval has passed, writes the file: the result of that
    // write, else true.
    bool put(const Str& key, const Str& value);
    // Writes the file whole: through a new file in the same directory, flushed, then renamed
    // over the old one, so that a reader or a crash never meets a partly written file.
    bool sync();

  private:
    void populateCacheFromFile(FILE* file);
    bool isSqllitestorePresent() const;
    bool upgradeFromSqlLite();

    bool initialized_ = false;
    Mutex lock_;
    Pathname path_;
    uint64_t syncIntervalMilliseconds_;
    std::map<Str, Str> cache_;
    // On the coarse clock, as every reading it is compared with.
    Timeval nextSyncTime_;
    // The old store of a migration, open until the end.
    std::unique_ptr<PersistentStorage> store_;
};

}  // namespace morvax
