#include "util/log/LogRegistry.h"

#include <cstdarg>

#include "util/base/LastError.h"
#include "util/log/DiagnosticsLoggers.h"
#include "util/log/LogMessage.h"
#include "util/log/LogPlatform.h"
#include "util/log/LogRecord.h"
#include "util/log/Logger.h"

namespace morvax {

namespace {

enum ListKind : uint8_t { UNLISTED = 0, PENDING = 1, RESOLVED = 2 };

constexpr char kRootAppenderName[] = "rootAppender";

bool unlink(Logger*& head, Logger* target, Logger* Logger::*next) {
    for (Logger** link = &head; *link != nullptr; link = &((*link)->*next)) {
        if (*link == target) {
            *link = target->*next;
            target->*next = nullptr;
            return true;
        }
    }
    return false;
}

}  // namespace

LogRegistry& LogRegistry::instance() {
    static LogRegistry* registry = new LogRegistry();
    return *registry;
}

LogRegistry::LogRegistry()
    : timeOrigin_(Timeval::now()), rootAppender_(StrSegment()), reportLogger_("Logger", *this) {
    rootAppender_.resetToStandardError();
    // From now on the folders below logging report through it.
    DiagnosticsLoggers::install();
}

void LogRegistry::add(Logger& logger) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (configured()) {
        logger.channel_.store(&channel(StrSegment(logger.name_, logger.nameLength_)),
                              std::memory_order_release);
        logger.next_ = resolvedLoggers_;
        resolvedLoggers_ = &logger;
        logger.list_.store(RESOLVED, std::memory_order_release);
    } else {
        logger.next_ = pendingLoggers_;
        pendingLoggers_ = &logger;
        logger.list_.store(PENDING, std::memory_order_release);
    }
}

void LogRegistry::remove(Logger& logger) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (!unlink(resolvedLoggers_, &logger, &Logger::next_)) {
        unlink(pendingLoggers_, &logger, &Logger::next_);
    }
    logger.list_.store(UNLISTED, std::memory_order_release);
}

void LogRegistry::resolveLoggers() {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    for (Logger* logger = resolvedLoggers_; logger != nullptr; logger = logger->next_) {
        logger->channel_.store(&channel(StrSegment(logger->name_, logger->nameLength_)),
                               std::memory_order_release);
    }
    // Pending Loggers join the resolved list, so that the next reload finds them all.
    Logger* last = nullptr;
    for (Logger* logger = pendingLoggers_; logger != nullptr; logger = logger->next_) {
        logger->channel_.store(&channel(StrSegment(logger->name_, logger->nameLength_)),
                               std::memory_order_release);
        logger->list_.store(RESOLVED, std::memory_order_release);
        last = logger;
    }
    if (last != nullptr) {
        last->next_ = resolvedLoggers_;
        resolvedLoggers_ = pendingLoggers_;
        pendingLoggers_ = nullptr;
    }
    configured_.store(true, std::memory_order_release);
}

LogChannel& LogRegistry::channel(StrSegment name) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    Str key(name);
    auto found = channels_.find(key);
    if (found != channels_.end()) {
        return *found->second;
    }
    auto created = std::make_unique<LogChannel>();
    created->copyFrom(rootChannel_);
    LogChannel& result = *created;
    channels_.emplace(std::move(key), std::move(created));
    return result;
}

LogAppender* LogRegistry::findAppender(StrSegment name, bool create) {
    if (name == StrSegment(kRootAppenderName)) {
        return &rootAppender_;
    }
    std::lock_guard<std::recursive_mutex> hold(lock_);
    Str key(name);
    auto found = appenders_.find(key);
    if (found != appenders_.end()) {
        return found->second.get();
    }
    if (!create) {
        return nullptr;
    }
    auto created = std::make_unique<LogAppender>(name);
    LogAppender* result = created.get();
    appenders_.emplace(std::move(key), std::move(created));
    return result;
}

std::vector<LogAppender*> LogRegistry::appenders() {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    std::vector<LogAppender*> result;
    result.reserve(appenders_.size());
    for (auto& entry : appenders_) {
        result.push_back(entry.second.get());
    }
    return result;
}

void LogRegistry::reset() {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    for (Logger* logger = resolvedLoggers_; logger != nullptr; logger = logger->next_) {
        logger->channel_.store(&rootChannel_, std::memory_order_release);
    }
    for (Logger* logger = pendingLoggers_; logger != nullptr; logger = logger->next_) {
        logger->channel_.store(&rootChannel_, std::memory_order_release);
    }
    rootChannel_.reset();
    for (auto& entry : channels_) {
        retiredChannels_.push_back(std::move(entry.second));
    }
    channels_.clear();
    for (auto& entry : appenders_) {
        entry.second->retire();
        retiredAppenders_.push_back(std::move(entry.second));
    }
    appenders_.clear();
    rootAppender_.resetToStandardError();
}

void LogRegistry::flushAll() {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    rootAppender_.flush();
    for (auto& entry : appenders_) {
        entry.second->flush();
    }
}

void LogRegistry::emergencyWrite(int32_t level, StrSegment text) {
    LastErrorPreserver keep;
    if (instance().quiet()) {
        return;
    }
    try {
        const char* name = logLevelName(level);
        Str line;
        line.reserve(text.size() + 16);
        line.append(name);
        line.append(" - ", 3);
        line.append(text);
        line.append("\r\n", 2);
        LogPlatform::writeStandardError(line.data(), line.size());
    } catch (...) {
        // Nothing is left to tell.
    }
}

void LogRegistry::report(const LogAppender* excluded, int32_t level, const char* fmt, ...) {
    Logger& logger = instance().reportLogger();
    LogChannel* channel = logger.channel();
    if (level < channel->level()) {
        return;
    }
    LastErrorPreserver keep;
    Str text;
    try {
        va_list args;
        va_start(args, fmt);
        text.appendFormatErrorV(keep.saved(), fmt, args);
        va_end(args);
        LogRegistry& registry = instance();
        if (LogWriter* writer = registry.writer()) {
            writer->write(logger, level, text);
            return;
        }
        LogRecord record;
        record.time = Timeval::now();
        record.logger = &logger;
        record.level = level;
        LogMessage message(text, !logger.escapesMessages());
        std::vector<LogAppender*> targets = channel->appenders();
        if (targets.empty()) {
            targets.push_back(&registry.rootAppender());
        }
        bool taken = false;
        for (LogAppender* appender : targets) {
            if (appender != excluded &&
                appender->append(record, message, channel->buffered(), nullptr)) {
                taken = true;
            }
        }
        if (!taken) {
            emergencyWrite(level, text);
        }
    } catch (...) {
        emergencyWrite(level, text.empty() ? StrSegment(fmt) : text.segment());
    }
}

}  // namespace morvax
