#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"
#include "util/log/LogPattern.h"
#include "util/log/RollingLogFile.h"

namespace morvax {

class LogFilter;
class LogMessage;
struct LogRecord;

// Where lines go: standard error or a rolling file, rendered by a LogPattern. Rendering runs
// outside the appender's lock, the file work inside it.
class LogAppender {
  public:
    enum Serialization : uint32_t { PLAIN = 1, JSON = 2 };
    static constexpr uint32_t DEFAULT_MAX_MESSAGE_SIZE = 16384;
    static constexpr uint64_t DEFAULT_BUFFER_SIZE = 16384;

    // A named appender starts with no file and no layout; the configuration completes it.
    explicit LogAppender(StrSegment name);
    ~LogAppender();
    LogAppender(const LogAppender&) = delete;
    LogAppender& operator=(const LogAppender&) = delete;

    // Empty for the root appender.
    const Str& name() const { return name_; }
    // The name for reports: "rootAppender" for the root appender.
    const char* displayName() const;

    // Writes one record. `filters` is given for the first appender of a channel. False when the
    // appender is disabled and so did not take the line.
    bool append(const LogRecord& record, LogMessage& message, bool buffered,
                const std::vector<LogFilter*>* filters);
    // Writes what a buffered channel left pending.
    void flush();
    // Flushes and closes the file; a later line reopens it.
    void close();
    // Flushes, closes and disables for good: the appender of a dropped configuration.
    void retire();
    // The root appender's state: standard error, "%m%n", default sizes, escape on, enabled.
    void resetToStandardError();

    // Settings, each under the appender's lock.
    Pathname fileName() const;
    Str rawFileName() const;
    // An empty name leaves the appender without a file. `filteredOut` disables it at the check.
    void setFileName(const Pathname& fileName, StrSegment rawFileName, bool filteredOut);
    int64_t maxFileSize() const;
    void setMaxFileSize(int64_t size);
    uint32_t maxBackupIndex() const;
    void setMaxBackupIndex(uint32_t index);
    uint32_t serialization() const;
    void setSerialization(uint32_t serialization);
    uint32_t maxMessageSize() const;
    void setMaxMessageSize(uint32_t size);
    uint64_t bufferSize() const;
    void setBufferSize(uint64_t size);
    bool escape() const;
    void setEscape(bool escape);
    std::shared_ptr<const LogPattern> layout() const;
    void setLayout(std::shared_ptr<const LogPattern> layout);
    bool disabled() const { return disabled_.load(std::memory_order_acquire); }
    void setDisabled(bool disabled) { disabled_.store(disabled, std::memory_order_release); }
    bool onStandardError() const;

    // Completes the appender after a load and reports what does not fit together. `report`
    // false (a silent load) disables an appender without a file. `rootPattern` is the layout of
    // an appender that has none.
    void check(bool report, const std::shared_ptr<const LogPattern>& rootPattern);

  private:
    // Under the lock.
    bool ensureOpen();
    void writePending();

    Str name_;
    // Lines go to the process's standard error rather than to file_.
    bool standardError_ = false;
    RollingLogFile file_;
    Str rawFileName_;
    uint32_t serialization_ = PLAIN;
    uint32_t maxMessageSize_ = DEFAULT_MAX_MESSAGE_SIZE;
    uint64_t bufferSize_ = DEFAULT_BUFFER_SIZE;
    std::shared_ptr<const LogPattern> layout_;
    mutable std::recursive_mutex lock_;
    std::atomic<bool> disabled_{false};
    // Set for good by retire().
    bool retired_ = false;
    bool filteredOut_ = false;
    bool escape_ = true;
    Str pending_;
};

}  // namespace morvax
