#include "util/log/LogConfiguration.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

#include "util/base/Ascii.h"
#include "util/base/LastError.h"
#include "util/io/FileStarOpen.h"
#include "util/io/ReadableUnicodeFileStarLineReader.h"
#include "util/log/LogAppender.h"
#include "util/log/LogChannel.h"
#include "util/log/LogConfParser.h"
#include "util/log/LogPattern.h"
#include "util/log/LogRegistry.h"
#include "util/log/Logger.h"

namespace morvax {

namespace {

struct DeferredList {
    LogConfEntry entry;
    Str fileName;
};

// What a load gathers before it applies channels and reports.
struct LoadState {
    explicit LoadState(const LogConfOptions& loadOptions) : options(loadOptions) {}

    const LogConfOptions& options;
    bool hasRoot = false;
    DeferredList root;
    std::vector<DeferredList> deferred;
    std::vector<LogConfError> errors;
    // The files read, in order.
    std::vector<Str> files;
};

// Decimal digits only, at most `limit`; `value` is set only on success.
bool parseDigits(const char* begin, const char* end, uint64_t limit, uint64_t& value) {
    uint64_t result = 0;
    for (const char* p = begin; p < end; ++p) {
        if (*p < '0' || *p > '9') {
            return false;
        }
        uint64_t digit = static_cast<uint64_t>(*p - '0');
        if (result > (limit - digit) / 10) {
            return false;
        }
        result = result * 10 + digit;
    }
    value = result;
    return true;
}

bool equalsIgnoreCase(StrSegment a, const char* b) {
    size_t length = std::char_traits<char>::length(b);
    if (a.size() != length) {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        char c = a[i];
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (c != b[i]) {
            return false;
        }
    }
    return true;
}

void addParseError(LoadState& state, const Str& fileName, const LogConfEntry& entry) {
    LogConfError error;
    error.kind = LogConfError::PARSE;
    error.fileName = fileName;
    error.lineNumber = entry.lineNumber;
    error.text = entry.line;
    state.errors.push_back(std::move(error));
}

// Appender entries take effect at once; channel lists wait until every appender exists.
void applyEntries(LoadState& state, LogConfParser& parser, const Str& fileName) {
    state.files.push_back(fileName);
    for (LogConfError& error : parser.errors()) {
        state.errors.push_back(std::move(error));
    }
    for (LogConfEntry& entry : parser.entries()) {
        switch (entry.kind) {
            case LogConfEntry::ROOT_CATEGORY:
                state.hasRoot = true;
                state.root.entry = std::move(entry);
                state.root.fileName = fileName;
                break;
            case LogConfEntry::CATEGORY:
                state.deferred.push_back(DeferredList{std::move(entry), fileName});
                break;
            case LogConfEntry::APPENDER:
                LogConfiguration::findAppender(entry.name, true);
                break;
            case LogConfEntry::APPENDER_KEY: {
                LogAppender* appender = LogConfiguration::findAppender(entry.name, true);
                if (!LogConfiguration::setAppenderKey(*appender, entry.key, entry.value,
                                                      state.options)) {
                    addParseError(state, fileName, entry);
                }
                break;
            }
        }
    }
}

// Errors are reported file by file (in the order the files were read) and line by line.
void sortErrors(LoadState& state) {
    const std::vector<Str>& files = state.files;
    auto rank = [&files](const Str& name) {
        auto found = std::find(files.begin(), files.end(), name);
        return static_cast<size_t>(found - files.begin());
    };
    std::stable_sort(state.errors.begin(), state.errors.end(),
                     [&rank](const LogConfError& a, const LogConfError& b) {
                         size_t rankA = rank(a.fileName);
                         size_t rankB = rank(b.fileName);
                         return rankA != rankB ? rankA < rankB : a.lineNumber < b.lineNumber;
                     });
}

// False when the file cannot be opened.
bool parseFile(LoadState& state, const Pathname& fileName) {
    FILE* file = openFileStar(fileName.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    Str name = fileName.toStr();
    ReadableUnicodeFileStarLineReader reader(file, true);
    LogConfParser parser(state.options.section, name);
    parser.parse(reader);
    applyEntries(state, parser, name);
    return true;
}

void flushAtExit() {
    LogRegistry::instance().flushAll();
}

void beginLoad(const LogConfOptions& options) {
    LogRegistry& registry = LogRegistry::instance();
    if (registry.configured()) {
        registry.reset();
    }
    registry.setQuiet(options.report == 0);
    // Buffered channels hold lines back; they must not be lost when the process ends.
    static std::once_flag flushRegistered;
    std::call_once(flushRegistered, [] { std::atexit(flushAtExit); });
}

bool finishLoad(LoadState& state) {
    LogRegistry& registry = LogRegistry::instance();
    if (state.hasRoot &&
        !LogConfiguration::setChannelFromList(registry.rootChannel(), state.root.entry.value)) {
        state.deferred.insert(state.deferred.begin(), std::move(state.root));
    }
    for (DeferredList& list : state.deferred) {
        LogChannel& channel = list.entry.kind == LogConfEntry::ROOT_CATEGORY
                                  ? registry.rootChannel()
                                  : registry.channel(list.entry.name);
        if (!LogConfiguration::setChannelFromList(channel, list.entry.value)) {
            addParseError(state, list.fileName, list.entry);
        }
    }
    registry.resolveLoggers();

    bool report = state.options.report != 0;
    std::shared_ptr<const LogPattern> rootPattern = registry.rootAppender().layout();
    if (!rootPattern) {
        rootPattern = LogPattern::messageLayout();
    }
    for (LogAppender* appender : registry.appenders()) {
        appender->check(report, rootPattern);
    }
    if (!report) {
        registry.rootAppender().check(false, rootPattern);
    }

    sortErrors(state);
    for (const LogConfError& error : state.errors) {
        switch (error.kind) {
            case LogConfError::PARSE:
                LogRegistry::report(nullptr, LOG_WARN, "%s:%u: Parse error at \"%s\"",
                                    error.fileName.c_str(), error.lineNumber, error.text.c_str());
                break;
            case LogConfError::UNTERMINATED_COMMENT:
                LogRegistry::report(nullptr, LOG_ERROR, "%s:%u: Unterminated XML comment started",
                                    error.fileName.c_str(), error.lineNumber);
                break;
            default:
                LogRegistry::report(nullptr, LOG_ERROR,
                                    "I know not this DeferredLogConf::error_type=%d you speak of.",
                                    error.kind);
                break;
        }
    }
    return state.errors.empty();
}

}  // namespace

bool LogConfiguration::load(const LogConfOptions& options) {
    LogRegistry& registry = LogRegistry::instance();
    std::lock_guard<std::recursive_mutex> hold(registry.configurationLock());
    beginLoad(options);
    LoadState state(options);
    if (!parseFile(state, options.fileName)) {
        LastErrorPreserver keep;
        registry.resolveLoggers();
        LastError::set(keep.saved());
        LogRegistry::report(nullptr, LOG_ERROR, "Couldn't open log file configuration \"%s\": %m",
                            options.fileName.toStr().c_str());
        return false;
    }
    // The companion need not exist.
    parseFile(state, localCompanionName(options.fileName));
    return finishLoad(state);
}

bool LogConfiguration::load(const LogConfOptions& options, StrSegment text) {
    LogRegistry& registry = LogRegistry::instance();
    std::lock_guard<std::recursive_mutex> hold(registry.configurationLock());
    beginLoad(options);
    LoadState state(options);
    Str name = options.fileName.toStr();
    LogConfParser parser(options.section, name);
    parser.parse(text);
    applyEntries(state, parser, name);
    return finishLoad(state);
}

void LogConfiguration::reset() {
    LogRegistry& registry = LogRegistry::instance();
    std::lock_guard<std::recursive_mutex> hold(registry.configurationLock());
    registry.reset();
    registry.setQuiet(false);
}

LogAppender* LogConfiguration::findAppender(StrSegment name, bool create) {
    return LogRegistry::instance().findAppender(name, create);
}

bool LogConfiguration::setAppenderKey(LogAppender& appender, StrSegment key, StrSegment rawValue,
                                      const LogConfOptions& options) {
    struct KeyBit {
        const char* key;
        uint32_t bit;
    };
    static const KeyBit keys[] = {
        {"fileName", LogConfOptions::KEY_FILE_NAME},
        {"maxFileSize", LogConfOptions::KEY_MAX_FILE_SIZE},
        {"maxBackupIndex", LogConfOptions::KEY_MAX_BACKUP_INDEX},
        {"layout", LogConfOptions::KEY_LAYOUT},
        {"layout.ConversionPattern", LogConfOptions::KEY_CONVERSION_PATTERN},
        {"serialization", LogConfOptions::KEY_SERIALIZATION},
        {"maxMessageSize", LogConfOptions::KEY_MAX_MESSAGE_SIZE},
        {"bufferSize", LogConfOptions::KEY_BUFFER_SIZE},
        {"escape", LogConfOptions::KEY_ESCAPE},
    };
    uint32_t bit = 0;
    for (const KeyBit& entry : keys) {
        if (key == StrSegment(entry.key)) {
            bit = entry.bit;
            break;
        }
    }
    if (bit == 0 || (options.allowedKeys & bit) == 0) {
        return false;
    }
    // A restricted load may raise the limits but never lower them.
    bool onlyGrow = options.allowedKeys != LogConfOptions::ALL_KEYS;
    Str value = substitute(rawValue, options.substitutions);
    uint64_t number = 0;

    switch (bit) {
        case LogConfOptions::KEY_FILE_NAME: {
            bool filteredOut = false;
            for (const Str& word : options.filterWords) {
                if (!word.empty() && value.find(word) != Str::npos) {
                    filteredOut = true;
                    break;
                }
            }
            // A relative name is taken against the current directory, as the user meant it.
            appender.setFileName(Pathname::absoluteClean(value.toWide()), value, filteredOut);
            return true;
        }
        case LogConfOptions::KEY_MAX_FILE_SIZE:
            if (!parseSize(value, static_cast<uint64_t>(std::numeric_limits<int64_t>::max()),
                           number) ||
                (onlyGrow && static_cast<int64_t>(number) < appender.maxFileSize())) {
                return false;
            }
            appender.setMaxFileSize(static_cast<int64_t>(number));
            return true;
        case LogConfOptions::KEY_MAX_BACKUP_INDEX:
            if (!parseSize(value, std::numeric_limits<uint32_t>::max(), number) ||
                (onlyGrow && number < appender.maxBackupIndex())) {
                return false;
            }
            appender.setMaxBackupIndex(static_cast<uint32_t>(number));
            return true;
        case LogConfOptions::KEY_MAX_MESSAGE_SIZE:
            if (!parseSize(value, std::numeric_limits<uint32_t>::max(), number) ||
                (onlyGrow && number < appender.maxMessageSize())) {
                return false;
            }
            appender.setMaxMessageSize(static_cast<uint32_t>(number));
            return true;
        case LogConfOptions::KEY_LAYOUT:
            if (value == StrSegment("BasicLayout")) {
                appender.setLayout(LogPattern::basicLayout());
            } else if (value == StrSegment("SimpleLayout")) {
                appender.setLayout(LogPattern::simpleLayout());
            } else if (!(value == StrSegment("PatternLayout"))) {
                return false;
            }
            return true;
        case LogConfOptions::KEY_CONVERSION_PATTERN:
            appender.setLayout(std::make_shared<const LogPattern>(value.segment()));
            return true;
        case LogConfOptions::KEY_SERIALIZATION:
            if (!(value == StrSegment("JSON"))) {
                LogRegistry::report(nullptr, LOG_ERROR, "Invalid serialization='%s'",
                                    value.c_str());
                return false;
            }
            appender.setSerialization(LogAppender::JSON);
            return true;
        case LogConfOptions::KEY_BUFFER_SIZE:
            if (!parseBufferSize(value, number)) {
                return false;
            }
            appender.setBufferSize(number);
            return true;
        case LogConfOptions::KEY_ESCAPE: {
            bool escape = true;
            if (!parseBoolean(value, escape)) {
                LogRegistry::report(nullptr, LOG_ERROR, "Invalid escape='%s'", value.c_str());
                return false;
            }
            appender.setEscape(escape);
            return true;
        }
        default:
            return false;
    }
}

bool LogConfiguration::setChannelFromList(LogChannel& channel, StrSegment list) {
    int32_t level = -1;
    bool buffered = false;
    bool unknown = false;
    std::vector<LogAppender*> appenders;
    size_t at = 0;
    while (at < list.size()) {
        char c = list[at];
        if (isBlank(c) || c == ',') {
            ++at;
            continue;
        }
        size_t end = at;
        while (end < list.size() && !isBlank(list[end]) && list[end] != ',') {
            ++end;
        }
        StrSegment token(list.data() + at, end - at);
        at = end;
        int32_t named = levelFromName(token);
        if (named >= 0) {
            level = named;
        } else if (equalsIgnoreCase(token, "buffered")) {
            buffered = true;
        } else if (LogAppender* appender = findAppender(token, false)) {
            appenders.push_back(appender);
        } else {
            unknown = true;
        }
    }
    if (unknown) {
        return false;
    }
    if (level >= 0) {
        channel.setLevel(level);
    }
    if (buffered) {
        channel.setBuffered(true);
    }
    if (!appenders.empty()) {
        channel.setAppenders(std::move(appenders));
    }
    return true;
}

bool LogConfiguration::setAppenderByName(const LogConfOptions& options, const char* appenderName,
                                         StrSegment key, StrSegment value) {
    LogRegistry& registry = LogRegistry::instance();
    std::lock_guard<std::recursive_mutex> hold(registry.configurationLock());
    if (appenderName != nullptr) {
        LogAppender* appender = findAppender(StrSegment(appenderName), true);
        return setAppenderKey(*appender, key, value, options);
    }
    for (LogAppender* appender : registry.appenders()) {
        if (!setAppenderKey(*appender, key, value, options)) {
            return false;
        }
    }
    return true;
}

Pathname LogConfiguration::localCompanionName(const Pathname& fileName) {
    const WStr& path = fileName.wide();
    size_t componentStart = 0;
    for (size_t i = path.size(); i > 0; --i) {
        if (path[i - 1] == Pathname::SEPARATOR || path[i - 1] == Pathname::ALT_SEPARATOR) {
            componentStart = i;
            break;
        }
    }
    size_t dot = path.find(u'.', componentStart);
    WStr result = path;
    if (dot == WStr::npos || dot == componentStart) {
        result.append(u"-local");
    } else {
        result.insert(dot, u"-local");
    }
    return Pathname(result);
}

Str LogConfiguration::substitute(StrSegment value, const std::map<Str, WStr>& substitutions) {
    Str result(value);
    for (const auto& [key, replacement] : substitutions) {
        if (key.empty() || result.find(key) == Str::npos) {
            continue;
        }
        Str utf8 = Str::fromWide(replacement);
        result.replaceAll(key, utf8);
    }
    return result;
}

bool LogConfiguration::parseSize(StrSegment text, uint64_t limit, uint64_t& value) {
    size_t end = text.size();
    while (end > 0 && isBlank(text[end - 1])) {
        --end;
    }
    if (end == 0 || (text[0] == '0' && end > 1)) {
        return false;
    }
    return parseDigits(text.data(), text.data() + end, limit, value);
}

bool LogConfiguration::parseBufferSize(StrSegment text, uint64_t& value) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(text[end - 1])) {
        --end;
    }
    if (begin == end) {
        return false;
    }
    return parseDigits(text.data() + begin, text.data() + end, std::numeric_limits<uint64_t>::max(),
                       value);
}

bool LogConfiguration::parseBoolean(StrSegment text, bool& value) {
    static const char* const trueWords[] = {"1", "t", "true", "yes"};
    static const char* const falseWords[] = {"0", "f", "false", "no"};
    for (const char* word : trueWords) {
        if (equalsIgnoreCase(text, word)) {
            value = true;
            return true;
        }
    }
    for (const char* word : falseWords) {
        if (equalsIgnoreCase(text, word)) {
            value = false;
            return true;
        }
    }
    return false;
}

int32_t LogConfiguration::levelFromName(StrSegment name) {
    for (int32_t level = LOG_DEBUG; level <= LOG_EMERG; ++level) {
        if (name == StrSegment(logLevelName(level))) {
            return level;
        }
    }
    return -1;
}

}  // namespace morvax
