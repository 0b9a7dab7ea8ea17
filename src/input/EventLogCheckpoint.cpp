#include "input/EventLogCheckpoint.h"

#include <charconv>
#include <cstring>

#include "util/base/Ascii.h"

namespace morvax {

namespace {

// How the read order is written and read: writing has no letter for MODE_UNKNOWN (it is never
// written, a record having been reported first) and every other value writes as D.
struct ModeLetter {
    char letter;
    uint32_t written;  // the mode that writes this letter
    uint32_t read;     // the mode this letter reads as
};
constexpr ModeLetter kLetters[] = {
    {'U', EventLogCheckpoint::MODE_UNSET, EventLogCheckpoint::MODE_UNKNOWN},
    {'O', EventLogCheckpoint::MODE_ONE_SEEN, EventLogCheckpoint::MODE_ONE_SEEN},
    {'A', EventLogCheckpoint::MODE_ASCENDING, EventLogCheckpoint::MODE_ASCENDING},
    {'D', EventLogCheckpoint::MODE_DESCENDING, EventLogCheckpoint::MODE_DESCENDING},
};

void skipBlanks(StrSegment text, size_t& pos) {
    while (pos < text.size() && isSpace(text[pos])) {
        ++pos;
    }
}

// An unsigned 32-bit number after blanks; false without digits or beyond 32 bits.
bool readNumber(StrSegment text, size_t& pos, uint32_t& out) {
    skipBlanks(text, pos);
    uint64_t value = 0;
    const size_t start = pos;
    while (pos < text.size() && isDigit(text[pos])) {
        value = value * 10 + static_cast<uint64_t>(text[pos] - '0');
        if (value > UINT32_MAX) {
            return false;
        }
        ++pos;
    }
    out = static_cast<uint32_t>(value);
    return pos > start;
}

}  // namespace

void EventLogCheckpoint::setCheckpoint(uint32_t chk, uint32_t low, uint32_t hi, uint32_t mode,
                                       const Str* time) {
    chk_ = chk;
    low_ = low;
    hi_ = hi;
    if (mode != MODE_UNSET) {
        mode_ = mode;
    }
    if (time != nullptr) {
        time_ = *time;
    }
    text_.clear();
}

const Str& EventLogCheckpoint::formatCheckpoint() const {
    if (text_.empty()) {
        char letter = 'D';
        for (const ModeLetter& entry : kLetters) {
            if (entry.written == mode_) {
                letter = entry.letter;
            }
        }
        // Made after every reported record: plain digit conversion, not the printf engine, and
        // a time of the usual length copied along, so that the text is taken in at once.
        constexpr size_t kTimeRoom = 32;
        char buffer[1 + 3 * 11 + 1 + kTimeRoom];
        char* end = buffer;
        *end++ = letter;
        for (uint32_t value : {chk_, low_, hi_}) {
            *end++ = ' ';
            end = std::to_chars(end, buffer + sizeof buffer, value).ptr;
        }
        const bool timeFits = time_.size() <= kTimeRoom;
        if (!time_.empty() && timeFits) {
            *end++ = ' ';
            std::memcpy(end, time_.data(), time_.size());
            end += time_.size();
        }
        text_.append(StrSegment(buffer, static_cast<size_t>(end - buffer)));
        if (!timeFits) {
            text_.append(' ').append(time_);
        }
    }
    return text_;
}

bool EventLogCheckpoint::parseCheckpoint(StrSegment text) {
    if (text.size() == 0) {
        return false;
    }
    const ModeLetter* mode = nullptr;
    for (const ModeLetter& entry : kLetters) {
        if (entry.letter == text[0]) {
            mode = &entry;
        }
    }
    size_t pos = 1;
    uint32_t numbers[3];
    if (mode == nullptr) {
        return false;
    }
    for (uint32_t& number : numbers) {
        if (!readNumber(text, pos, number)) {
            return false;
        }
    }
    skipBlanks(text, pos);
    size_t end = pos;
    while (end < text.size() && !isSpace(text[end])) {
        ++end;
    }
    if (end - pos > kMaxTimeLength) {
        return false;
    }
    const Str time(StrSegment(text.data() + pos, end - pos));
    setCheckpoint(numbers[0], numbers[1], numbers[2], mode->read, &time);
    return true;
}

}  // namespace morvax
