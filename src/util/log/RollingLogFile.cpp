#include "util/log/RollingLogFile.h"

#include "util/base/LastError.h"
#include "util/log/LogPlatform.h"
#include "util/log/LogRegistry.h"
#include "util/log/Logger.h"

namespace morvax {

void RollingLogFile::setFileName(const Pathname& fileName) {
    close();
    fileName_ = fileName;
    openFailed_ = false;
}

Pathname RollingLogFile::backupName(const Pathname& base, uint32_t index) {
    if (index == 0) {
        return base;
    }
    Str suffix;
    suffix.appendFormat(".%u", index);
    WStr name = base.wide();
    Str::appendToWide(name, suffix.data(), suffix.size());
    return Pathname(name);
}

bool RollingLogFile::open(const LogAppender* owner) {
    return openFile(owner, false);
}

bool RollingLogFile::openFile(const LogAppender* owner, bool rolling) {
    handle_.close();
    handle_ = fileName_.openForAppend(Pathname::SHARE_READ | Pathname::SHARE_DELETE);
    if (!handle_.isValid()) {
        if (rolling) {
            LogRegistry::report(owner, LOG_ERROR, "Error opening \"%s\": %m",
                                fileName_.toStr().c_str());
        } else if (!openFailed_) {
            LogRegistry::report(owner, LOG_ERROR, "Failed opening \"%s\": %m",
                                fileName_.toStr().c_str());
        }
        openFailed_ = true;
        return false;
    }
    if (openFailed_) {
        openFailed_ = false;
        LogRegistry::report(owner, LOG_DEBUG, "Successfully opened \"%s\" now.",
                            fileName_.toStr().c_str());
    }
    int64_t size = 0;
    if (!LogPlatform::fileSize(handle_, size)) {
        LogRegistry::report(owner, LOG_ERROR, "Error calling fstat on \"%s\": %m",
                            fileName_.toStr().c_str());
        handle_.close();
        return false;
    }
    currentSize = size;
    return true;
}

void RollingLogFile::close() {
    LastErrorPreserver keep;
    handle_.close();
}

bool RollingLogFile::write(StrSegment bytes, const LogAppender* owner) {
    if (!handle_.write(bytes)) {
        LogRegistry::report(owner, LOG_ERROR, "Error writing to \"%s\": %m",
                            fileName_.toStr().c_str());
        close();
        return false;
    }
    currentSize += static_cast<int64_t>(bytes.size());
    if (maxFileSize >= 1 && currentSize > maxFileSize) {
        roll(owner);
    }
    return true;
}

void RollingLogFile::roll(const LogAppender* owner) {
    close();
    // Find the first free number; a gap stops the shift there, so the numbers stay dense.
    uint32_t free = 0;
    for (;; ++free) {
        Pathname name = backupName(fileName_, free);
        if (free >= maxBackupIndex) {
            if (!name.removeFile() && !LogPlatform::isNotFoundError(LastError::get())) {
                LogRegistry::report(owner, LOG_WARN, "Error unlinking \"%s\": %m",
                                    name.toStr().c_str());
            }
            break;
        }
        if (name.exists() == Pathname::NOT_FOUND) {
            break;
        }
    }
    for (uint32_t i = free; i >= 1; --i) {
        Pathname from = backupName(fileName_, i - 1);
        Pathname to = backupName(fileName_, i);
        if (from.rename(to) != 0) {
            LogRegistry::report(owner, LOG_WARN, "Error renaming \"%s\" to \"%s\": %m",
                                from.toStr().c_str(), to.toStr().c_str());
        }
    }
    openFile(owner, true);
}

}  // namespace morvax
