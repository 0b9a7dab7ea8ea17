#pragma once

#include <cstdint>

#include "util/base/StrSegment.h"
#include "util/io/FileHandle.h"
#include "util/io/Pathname.h"

namespace morvax {

class LogAppender;

// The file of an appender: opened for appending, counted, and rolled over to numbered backups
// ("x.log.1" the newest) when it grows past its limit. Not locked: its appender holds the lock.
// Failures are reported on behalf of `owner`, which the report path then leaves out.
class RollingLogFile {
  public:
    const Pathname& fileName() const { return fileName_; }
    // Closes the file; the next write opens the new name.
    void setFileName(const Pathname& fileName);
    bool isOpen() const { return handle_.isValid(); }

    // Bytes; 0 never rolls.
    int64_t maxFileSize = 0;
    // Bytes in the file: read at opening, then counted.
    int64_t currentSize = 0;
    // Rolled files to keep.
    uint32_t maxBackupIndex = 0;

    // Opens (or reopens) for appending, shared for reading and deletion. Reports a failure once
    // until a later success, which is reported at DEBUG.
    bool open(const LogAppender* owner);
    void close();
    // Writes all of the bytes, then rolls when the file grew past maxFileSize. A failed write
    // is reported and closes the file, so that the next line reopens it.
    bool write(StrSegment bytes, const LogAppender* owner);
    // Shifts the backups up by one, keeping their numbers dense, and starts a new file.
    void roll(const LogAppender* owner);

    // `base` for 0, else `base` with "." and the number behind it.
    static Pathname backupName(const Pathname& base, uint32_t index);

  private:
    // Opens and reads the size. A failure while rolling is always reported: the file was open a
    // moment ago, so it is news.
    bool openFile(const LogAppender* owner, bool rolling);

    Pathname fileName_;
    FileHandle handle_;
    // The last open failed: hold back repeated reports.
    bool openFailed_ = false;
};

}  // namespace morvax
