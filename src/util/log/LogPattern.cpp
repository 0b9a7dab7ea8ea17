#include "util/log/LogPattern.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "util/base/Ascii.h"
#include "util/log/Logger.h"
#include "util/thread/Thread.h"
#include "util/time/StructTm.h"

namespace morvax {

namespace {

constexpr char kDefaultDate[] = "%Y-%m-%d %H:%M:%S,%l";
// Widths beyond this would only pad; a pattern asking for more gets this.
constexpr uint32_t kMaxWidth = 4096;
// A precision below this cuts the message; from it on the skip rule shortens it.
constexpr uint32_t kMessageSkipThreshold = 45;
// Thread names are shortened to this unless the pattern gives a precision.
constexpr size_t kMaxThreadName = 100;
// The skip rule keeps a tail only when this much room is left beside the marker.
constexpr int64_t kMinRoomForTail = 64;

uint32_t readNumber(const char*& p, const char* end, uint32_t limit) {
    uint64_t value = 0;
    while (p < end && isDigit(*p)) {
        value = value * 10 + static_cast<uint64_t>(*p - '0');
        if (value > limit) {
            value = limit;
        }
        ++p;
    }
    return static_cast<uint32_t>(value);
}

void compileDate(TimeFormat& date, StrSegment text) {
    if (text.empty() || text == StrSegment("ISO8601")) {
        date.compile(StrSegment(kDefaultDate));
    } else if (text == StrSegment("ABSOLUTE")) {
        date.compile(StrSegment("%H:%M:%S,%l"));
    } else if (text == StrSegment("DATE")) {
        date.compile(StrSegment("%d %b %Y %H:%M:%S,%l"));
    } else if (!date.compile(text)) {
        date.compile(StrSegment(kDefaultDate));
    }
}

}  // namespace

LogPattern::LogPattern(StrSegment text) : text_(text) {
    compile();
}

void LogPattern::compile() {
    const char* p = text_.begin();
    const char* end = text_.end();
    while (p < end) {
        const char* percent = static_cast<const char*>(std::memchr(p, '%', end - p));
        if (percent == nullptr) {
            percent = end;
        }
        if (percent > p) {
            Atom literal;
            literal.text.assign(p, percent - p);
            atoms_.push_back(std::move(literal));
        }
        if (percent == end) {
            break;
        }
        p = percent + 1;
        if (p == end) {
            break;
        }
        if (*p == '%') {
            Atom literal;
            literal.text.append('%');
            atoms_.push_back(std::move(literal));
            ++p;
            continue;
        }
        Atom atom;
        if (*p == '-') {
            atom.fill = FILL_RIGHT;
            ++p;
        } else if (*p == '0') {
            atom.fill = '0';
            ++p;
        }
        atom.width = readNumber(p, end, kMaxWidth);
        if (p < end && *p == '.') {
            ++p;
            atom.precision = readNumber(p, end, NO_PRECISION - 1);
        }
        if (p == end) {
            break;
        }
        char conversion = *p++;
        StrSegment braces;
        if (p < end && *p == '{') {
            const char* close = static_cast<const char*>(std::memchr(p + 1, '}', end - p - 1));
            if (close == nullptr) {
                // The braces run to the end of the pattern: nothing is left to compile.
                break;
            }
            braces = StrSegment(p + 1, close - p - 1);
            p = close + 1;
        }
        switch (conversion) {
            case 'm':
                atom.kind = MESSAGE;
                break;
            case 'n':
                atom.kind = LITERAL;
                atom.text.append("\r\n", 2);
                break;
            case 'c':
                atom.kind = CHANNEL;
                break;
            case 'p':
                atom.kind = PRIORITY;
                break;
            case 't':
                atom.kind = THREAD;
                break;
            case 'T':
                atom.kind = THREAD_ID;
                break;
            case 'r':
                atom.kind = ELAPSED_MS;
                break;
            case 'R':
                atom.kind = ELAPSED_S;
                break;
            case 'u':
                atom.kind = CLOCK;
                break;
            case 'd':
                atom.kind = DATE;
                compileDate(atom.date, braces);
                break;
            default:
                continue;
        }
        atoms_.push_back(std::move(atom));
    }
}

// The fixed layouts are never destroyed, so that a line logged while the process exits still
// finds them.
const std::shared_ptr<const LogPattern>& LogPattern::basicLayout() {
    static const auto* pattern =
        new std::shared_ptr<const LogPattern>(std::make_shared<const LogPattern>("%R %p %c %m%n"));
    return *pattern;
}

const std::shared_ptr<const LogPattern>& LogPattern::simpleLayout() {
    static const auto* pattern =
        new std::shared_ptr<const LogPattern>(std::make_shared<const LogPattern>("%-8p: %m%n"));
    return *pattern;
}

const std::shared_ptr<const LogPattern>& LogPattern::messageLayout() {
    static const auto* pattern =
        new std::shared_ptr<const LogPattern>(std::make_shared<const LogPattern>("%m%n"));
    return *pattern;
}

void LogPattern::render(const Fields& fields, Str& target) const {
    if (fields.serialization == 2) {
        renderJson(fields, target);
    } else {
        renderPlain(fields, target);
    }
}

void LogPattern::applyWidth(const Atom& atom, Str& target, size_t start, bool cut) {
    size_t length = target.size() - start;
    if (cut && length > atom.precision) {
        target.resize(start + atom.precision);
        length = atom.precision;
    }
    if (length >= atom.width) {
        return;
    }
    size_t pad = atom.width - length;
    if (atom.fill == FILL_RIGHT) {
        target.append(pad, ' ');
        return;
    }
    target.resize(target.size() + pad);
    char* text = target.data() + start;
    std::memmove(text + pad, text, length);
    std::memset(text, atom.fill, pad);
}

void LogPattern::appendValue(const Atom& atom, const Fields& fields, Str& target) const {
    switch (atom.kind) {
        case CHANNEL:
            target.append(fields.loggerName);
            break;
        case PRIORITY:
            target.append(logLevelName(fields.level));
            break;
        case THREAD: {
            Str current;
            const Str* name = fields.threadName;
            if (name == nullptr) {
                current = Thread::currentThreadName();
                name = &current;
            }
            if (atom.precision == NO_PRECISION) {
                appendSkipped(target, name->segment(), kMaxThreadName);
            } else {
                target.append(*name);
            }
            break;
        }
        case THREAD_ID:
            target.appendFormat(
                "%u", fields.threadName != nullptr ? fields.threadId : Thread::currentThreadId());
            break;
        case ELAPSED_MS:
        case ELAPSED_S: {
            uint64_t ms = fields.timeOrigin.isBefore(fields.time)
                              ? Timeval::differenceMs(fields.time, fields.timeOrigin)
                              : 0;
            target.appendFormat(
                "%llu", static_cast<unsigned long long>(atom.kind == ELAPSED_MS ? ms : ms / 1000));
            break;
        }
        case CLOCK:
            target.appendFormat("%lld", static_cast<long long>(std::clock()));
            break;
        default:
            break;
    }
}

void LogPattern::appendDate(const Atom& atom, const Fields& fields, Str& target,
                            LocalStructTmHires& localTime, bool& localTimeReady) const {
    if (!localTimeReady) {
        localTimeReady = true;
        if (!localTime.fromTimeval(fields.time)) {
            LocalStructTm::setFallback(localTime, false);
            localTime.subSeconds = 0;
        }
    }
    atom.date.format(localTime, target);
}

void LogPattern::appendMessage(const Atom& atom, const Fields& fields, Str& target) const {
    StrSegment message = fields.message;
    if (atom.precision != NO_PRECISION) {
        if (message.size() > atom.precision && atom.precision < kMessageSkipThreshold) {
            target.append(message.data(), atom.precision);
        } else {
            appendSkipped(target, message, atom.precision);
        }
    } else if (fields.truncates && message.size() > fields.maxMessageSize) {
        appendSkipped(target, message,
                      fields.maxMessageSize < 800 ? 100 : fields.maxMessageSize / 8);
    } else {
        target.append(message);
    }
}

void LogPattern::renderPlain(const Fields& fields, Str& target) const {
    LocalStructTmHires localTime;
    bool localTimeReady = false;
    for (const Atom& atom : atoms_) {
        size_t start = target.size();
        switch (atom.kind) {
            case LITERAL:
                target.append(atom.text);
                break;
            case MESSAGE:
                appendMessage(atom, fields, target);
                // The message has its own length rule; only the width applies.
                applyWidth(atom, target, start, false);
                continue;
            case DATE:
                appendDate(atom, fields, target, localTime, localTimeReady);
                break;
            default:
                appendValue(atom, fields, target);
                break;
        }
        applyWidth(atom, target, start, true);
    }
}

void LogPattern::renderJson(const Fields& fields, Str& target) const {
    LocalStructTmHires localTime;
    bool localTimeReady = false;
    size_t lineStart = target.size();
    target.append('{');
    for (const Atom& atom : atoms_) {
        switch (atom.kind) {
            case MESSAGE:
                // The message must itself be a JSON value, so it is neither quoted nor cut.
                target.append("\"data\":");
                target.append(fields.message);
                target.append('}');
                break;
            case LITERAL:
                if (atom.text.startsWith(StrSegment("\r\n", 2))) {
                    target.append(atom.text);
                }
                break;
            case CHANNEL:
                target.append("\"component\":\"");
                target.append(fields.loggerName);
                target.append("\",");
                break;
            case PRIORITY:
                target.append("\"log_level\":\"");
                target.append(logLevelName(fields.level));
                target.append("\",");
                break;
            case DATE:
                target.append("\"datetime\":\"");
                appendDate(atom, fields, target, localTime, localTimeReady);
                target.append("\",");
                break;
            case THREAD:
            case THREAD_ID:
            case ELAPSED_MS:
            case ELAPSED_S:
            case CLOCK: {
                size_t start = target.size();
                appendValue(atom, fields, target);
                applyWidth(atom, target, start, true);
                break;
            }
            default:
                target.resize(lineStart);
                target.append("_atoms array invalid!");
                return;
        }
    }
}

void LogPattern::appendSkipped(Str& target, StrSegment text, size_t size) {
    size_t length = text.size();
    if (length <= size) {
        target.append(text);
        return;
    }
    // The count of vanished bytes includes the marker itself, whose length depends on the
    // count: repeat until it settles.
    char marker[64];
    int markerLength = 0;
    unsigned long long skipped = length - size;
    unsigned long long previous;
    do {
        previous = skipped;
        markerLength =
            std::snprintf(marker, sizeof marker, " ...{skipping %llu bytes}... ", previous);
        skipped = length - size + static_cast<unsigned long long>(markerLength);
    } while (skipped != previous);

    int64_t room = static_cast<int64_t>(size) - markerLength;
    size_t head;
    size_t tail;
    if (room < kMinRoomForTail) {
        // Too little room for a tail: the head takes the marker's closing dots instead.
        if (room + 4 < 0) {
            target.append(text.data(), size);
            return;
        }
        head = static_cast<size_t>(room + 4);
        tail = 0;
        markerLength -= 4;
    } else {
        tail = static_cast<size_t>(room / 4);
        head = static_cast<size_t>(room) - tail;
    }
    // An escape sequence must not lose its second half.
    while (head > 0 && text[head - 1] == '\\') {
        --head;
    }
    target.append(text.data(), head);
    target.append(marker, static_cast<size_t>(markerLength));
    target.append(text.end() - tail, tail);
}

}  // namespace morvax
