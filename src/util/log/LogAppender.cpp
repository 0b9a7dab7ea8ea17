#include "util/log/LogAppender.h"

#include "util/base/LastError.h"
#include "util/log/LogFilter.h"
#include "util/log/LogMessage.h"
#include "util/log/LogPlatform.h"
#include "util/log/LogRecord.h"
#include "util/log/LogRegistry.h"
#include "util/log/Logger.h"

namespace morvax {

namespace {

// The appenders whose lock this thread holds. A module that logs from inside an appender's file
// work (a path report during a roll, say) must not write into that same appender again.
constexpr int kMaxHeld = 4;
thread_local const LogAppender* heldAppenders[kMaxHeld];
thread_local int heldCount = 0;

// Also true when the nesting is deeper than the record keeps: no appender is entered then.
bool isHeld(const LogAppender* appender) {
    for (int i = 0; i < heldCount; ++i) {
        if (heldAppenders[i] == appender) {
            return true;
        }
    }
    return heldCount >= kMaxHeld;
}

// The appender's lock, with the appender recorded as held by this thread.
class AppenderLock {
  public:
    AppenderLock(const LogAppender* appender, std::recursive_mutex& mutex) : hold_(mutex) {
        if (heldCount < kMaxHeld) {
            heldAppenders[heldCount] = appender;
        }
        ++heldCount;
    }
    ~AppenderLock() { --heldCount; }
    AppenderLock(const AppenderLock&) = delete;
    AppenderLock& operator=(const AppenderLock&) = delete;

  private:
    std::lock_guard<std::recursive_mutex> hold_;
};

}  // namespace

LogAppender::LogAppender(StrSegment name) : name_(name) {}

LogAppender::~LogAppender() {
    LastErrorPreserver keep;
    flush();
}

const char* LogAppender::displayName() const {
    return name_.empty() ? "rootAppender" : name_.c_str();
}

bool LogAppender::append(const LogRecord& record, LogMessage& message, bool buffered,
                         const std::vector<LogFilter*>* filters) {
    if (disabled()) {
        return false;
    }
    if (isHeld(this)) {
        LogRegistry::emergencyWrite(record.level, message.rawText());
        return true;
    }
    std::shared_ptr<const LogPattern> pattern;
    LogPattern::Fields fields;
    bool escapeText;
    {
        std::lock_guard<std::recursive_mutex> hold(lock_);
        pattern = layout_ ? layout_ : LogPattern::messageLayout();
        fields.maxMessageSize = maxMessageSize_;
        fields.serialization = serialization_;
        escapeText = escape_;
    }
    fields.time = record.time;
    fields.level = record.level;
    fields.loggerName = StrSegment(record.logger->name(), record.logger->nameLength());
    fields.message = message.text(escapeText);
    fields.truncates = record.logger->truncatesMessages();
    fields.timeOrigin = LogRegistry::instance().timeOrigin();
    Str line;
    pattern->render(fields, line);

    AppenderLock hold(this, lock_);
    if (disabled()) {
        return false;
    }
    if (!ensureOpen()) {
        return false;
    }
    if (filters != nullptr) {
        for (LogFilter* filter : *filters) {
            filter->see(record, line);
        }
    }
    pending_.append(line);
    if (buffered && pending_.size() < bufferSize_) {
        return true;
    }
    writePending();
    return true;
}

bool LogAppender::ensureOpen() {
    if (standardError_ || file_.isOpen()) {
        return true;
    }
    if (file_.fileName().empty()) {
        return false;
    }
    return file_.open(this);
}

void LogAppender::writePending() {
    if (pending_.empty()) {
        return;
    }
    if (standardError_) {
        LogPlatform::writeStandardError(pending_.data(), pending_.size());
    } else if (ensureOpen()) {
        file_.write(pending_, this);
    }
    // Written or lost: either way it is not kept for a retry.
    pending_.clear();
}

void LogAppender::flush() {
    AppenderLock hold(this, lock_);
    writePending();
}

void LogAppender::close() {
    AppenderLock hold(this, lock_);
    writePending();
    file_.close();
}

void LogAppender::retire() {
    AppenderLock hold(this, lock_);
    if (!retired_) {
        writePending();
    }
    file_.close();
    retired_ = true;
    setDisabled(true);
}

void LogAppender::resetToStandardError() {
    AppenderLock hold(this, lock_);
    writePending();
    file_.setFileName(Pathname());
    file_.maxFileSize = 0;
    file_.maxBackupIndex = 0;
    file_.currentSize = 0;
    standardError_ = true;
    rawFileName_.clear();
    serialization_ = PLAIN;
    maxMessageSize_ = DEFAULT_MAX_MESSAGE_SIZE;
    bufferSize_ = DEFAULT_BUFFER_SIZE;
    layout_ = LogPattern::messageLayout();
    filteredOut_ = false;
    escape_ = true;
    setDisabled(false);
}

Pathname LogAppender::fileName() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return file_.fileName();
}

Str LogAppender::rawFileName() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return rawFileName_;
}

void LogAppender::setFileName(const Pathname& fileName, StrSegment rawFileName, bool filteredOut) {
    AppenderLock hold(this, lock_);
    writePending();
    file_.setFileName(fileName);
    if (!fileName.empty()) {
        standardError_ = false;
    }
    rawFileName_ = rawFileName;
    filteredOut_ = filteredOut;
}

int64_t LogAppender::maxFileSize() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return file_.maxFileSize;
}

void LogAppender::setMaxFileSize(int64_t size) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    file_.maxFileSize = size;
}

uint32_t LogAppender::maxBackupIndex() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return file_.maxBackupIndex;
}

void LogAppender::setMaxBackupIndex(uint32_t index) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    file_.maxBackupIndex = index;
}

uint32_t LogAppender::serialization() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return serialization_;
}

void LogAppender::setSerialization(uint32_t serialization) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    serialization_ = serialization;
}

uint32_t LogAppender::maxMessageSize() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return maxMessageSize_;
}

void LogAppender::setMaxMessageSize(uint32_t size) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    maxMessageSize_ = size;
}

uint64_t LogAppender::bufferSize() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return bufferSize_;
}

void LogAppender::setBufferSize(uint64_t size) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    bufferSize_ = size;
}

bool LogAppender::escape() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return escape_;
}

void LogAppender::setEscape(bool escape) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    escape_ = escape;
}

std::shared_ptr<const LogPattern> LogAppender::layout() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return layout_;
}

void LogAppender::setLayout(std::shared_ptr<const LogPattern> layout) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    layout_ = std::move(layout);
}

bool LogAppender::onStandardError() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return standardError_;
}

void LogAppender::check(bool report, const std::shared_ptr<const LogPattern>& rootPattern) {
    AppenderLock hold(this, lock_);
    if (!layout_) {
        layout_ = rootPattern;
    }
    if (file_.fileName().empty()) {
        if (!report) {
            setDisabled(true);
            return;
        }
        if (!standardError_) {
            LogRegistry::report(this, LOG_WARN, "Appender \"%s\" has no filename, assuming stderr",
                                displayName());
            standardError_ = true;
        }
        if (file_.maxBackupIndex > 0) {
            LogRegistry::report(this, LOG_WARN,
                                "Appender \"%s\" has maxBackupIndex set without specifying a "
                                "filename, ignoring",
                                displayName());
            file_.maxBackupIndex = 0;
        }
        if (file_.maxFileSize > 0) {
            LogRegistry::report(this, LOG_WARN,
                                "Appender \"%s\" has maxFileSize set without specifying a "
                                "filename, ignoring",
                                displayName());
            file_.maxFileSize = 0;
        }
    }
    if (file_.maxBackupIndex > 0 && file_.maxFileSize == 0) {
        LogRegistry::report(this, LOG_WARN,
                            "Appender \"%s\" has maxBackupIndex set without specifying "
                            "maxFileSize, ignoring",
                            displayName());
        file_.maxBackupIndex = 0;
    }
    if (serialization_ != PLAIN && serialization_ != JSON) {
        LogRegistry::report(this, LOG_WARN,
                            "Appender \"%s\" has _serialization set to non-normative value, BUG!, "
                            "ignoring pointedly.",
                            displayName());
        serialization_ = PLAIN;
    }
    if (filteredOut_) {
        setDisabled(true);
    } else if (!file_.fileName().empty()) {
        // A test opening, so that a bad path is reported at start; the real one waits for the
        // first line.
        file_.open(this);
        file_.close();
    }
}

}  // namespace morvax
