#include "input/WMICheckpointer.h"

#include <cstdio>

#include "conf/InstallationInfo.h"
#include "input/WMILogger.h"
#include "storage/PersistentStorageKey.h"
#include "util/base/ComponentException.h"
#include "util/io/FileStarLineReader.h"
#include "util/io/FileStarOpen.h"
#include "util/thread/ScopedLock.h"

namespace morvax {

namespace {

// The old store: a database of the variable-data directory, beside (not inside) "wmi".
constexpr char kOldStoreName[] = "wmi_checkpoint";

}  // namespace

WMICheckpointer::WMICheckpointer() : syncIntervalMilliseconds_(UINT64_MAX) {}

WMICheckpointer::~WMICheckpointer() {
    if (initialized_) {
        sync();
    }
}

bool WMICheckpointer::init(uint64_t syncIntervalMilliseconds, const Pathname& checkpointPath) {
    ScopedLock hold(lock_);
    if (checkpointPath.empty()) {
        wmiLogger().error("%s: Unable to open WMI checkpoint directory", "WMICheckpointer::init");
        return false;
    }
    path_ = checkpointPath;
    const Str pathText = path_.toStr();
    // A directory is never a checkpoint file, though POSIX opens one for reading; it goes the
    // way of a file that cannot be opened, as it does on Windows.
    FILE* reader = path_.isDirectory() ? nullptr : openFileStar(path_.c_str(), "r");
    if (reader) {
        populateCacheFromFile(reader);
        std::fclose(reader);
    } else {
        wmiLogger().debug("%s: checkpoint file='%s' foesn't exist", "WMICheckpointer::init",
                          pathText.c_str());
        FileHandle created = path_.openForWrite();
        if (!created || !created.close()) {
            wmiLogger().error("%s: Unable to create checkpoint file='%s'", "WMICheckpointer::init",
                              pathText.c_str());
            return false;
        }
        if (!upgradeFromSqlLite()) {
            wmiLogger().error("%s: Failed to migrate checkpoint file", "WMICheckpointer::init");
            return false;
        }
        // What was taken over is written at once; without it the next start migrates again.
        if (store_ && !sync()) {
            path_.removeFile();
            return false;
        }
    }
    syncIntervalMilliseconds_ = syncIntervalMilliseconds;
    nextSyncTime_ = Timeval::addInterval(Timeval::coarseNow(), syncIntervalMilliseconds_);
    initialized_ = true;
    return true;
}

void WMICheckpointer::populateCacheFromFile(FILE* file) {
    cache_.clear();
    FileStarLineReader reader(file);
    Str line;
    while (reader.readLine(line)) {
        // The reader takes one CR before the LF; a value cannot end in CR at all, since the file
        // could not hold it: written back, the CR would read as part of the line end.
        while (!line.empty() && line.back() == '\r') {
            line.resize(line.size() - 1);
        }
        const size_t equals = line.view().find('=');
        if (equals == std::string_view::npos ||
            line.view().find('=', equals + 1) != std::string_view::npos) {
            wmiLogger().warn("%s: Invalid checkpoint record in line: %s",
                             "WMICheckpointer::populateCacheFromFile", line.c_str());
            continue;
        }
        cache_[Str(StrSegment(line.data(), equals))] =
            Str(StrSegment(line.data() + equals + 1, line.size() - equals - 1));
    }
}

bool WMICheckpointer::get(const Str& key, Str& value) {
    ScopedLock hold(lock_);
    auto found = cache_.find(key);
    value = found != cache_.end() ? found->second : Str();
    if (!value.empty()) {
        wmiLogger().debug("Read: \"%s\" -> \"%s\"", key.c_str(), value.c_str());
    } else {
        wmiLogger().debug("Read: No value for key \"%s\"", key.c_str());
    }
    return true;
}

bool WMICheckpointer::put(const Str& key, const Str& value) {
    ScopedLock hold(lock_);
    cache_[key] = value;
    // Looked at for every record: the cheap clock, whose grain is far below any interval.
    const Timeval now = Timeval::coarseNow();
    if (now.isBefore(nextSyncTime_)) {
        return true;
    }
    const bool written = sync();
    nextSyncTime_ = Timeval::addInterval(now, syncIntervalMilliseconds_);
    return written;
}

bool WMICheckpointer::sync() {
    ScopedLock hold(lock_);
    Pathname temporary;
    FileHandle file;
    if (path_.makeTempSibling(temporary) == 1) {
        file = temporary.openForWrite();
    }
    if (!file) {
        wmiLogger().error("%s: Unable to open checkpoint file='%s': '%m'", "WMICheckpointer::sync",
                          path_.toStr().c_str());
        if (!temporary.empty()) {
            temporary.removeFile();
        }
        return false;
    }
    bool written = true;
    Str line;
    for (const auto& [key, value] : cache_) {
        wmiLogger().debug("Writing: \"%s\" -> \"%s\"", key.c_str(), value.c_str());
        line.clear();
        line.append(key).append("=").append(value).append("\n");
        written = written && file.write(line.segment());
    }
    written = written && file.sync();
    written = file.close() && written;
    if (!written || temporary.rename(path_) != 0) {
        wmiLogger().error("%s: Unable to open checkpoint file='%s': '%m'", "WMICheckpointer::sync",
                          path_.toStr().c_str());
        temporary.removeFile();
        return false;
    }
    return true;
}

bool WMICheckpointer::isSqllitestorePresent() const {
    Pathname file = Pathname::join(InstallationInfo::instance().dbPath(), "persistentstorage");
    file = Pathname::join(file, kOldStoreName);
    if (!file.openForRead()) {
        return false;
    }
    wmiLogger().debug("%s: SqlLite storage file exists: '%S'.",
                      "WMICheckpointer::isSqllitestorePresent", file.c_str());
    return true;
}

bool WMICheckpointer::upgradeFromSqlLite() {
    store_.reset();
    if (!isSqllitestorePresent()) {
        return true;
    }
    try {
        store_ = std::make_unique<PersistentStorage>(InstallationInfo::instance().dbPath(),
                                                     StrSegment(kOldStoreName));
        // One printable first character after the other: these prefixes are the whole take-over.
        for (char first = 32; first <= 126; ++first) {
            PersistentStorageKey query;
            query.primary.append(first);
            store_->enumerate(query, cache_);
        }
    } catch (const ComponentException& e) {
        wmiLogger().error("Unable to open WMI checkpoint storage: %s", e.what());
        store_.reset();
        return false;
    }
    return true;
}

}  // namespace morvax
