#include "util/regex/Regex.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "util/base/Utf8.h"
#include "util/log/Logger.h"
#include "util/regex/RegexCache.h"

namespace morvax {

namespace {

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The library is told not to check subjects (JIT matching never does), so the check is ours.
bool isValidUtf8(const char* text, size_t length) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = p + length;
    while (p != end) {
        if (*p < 0x80) {
            ++p;
            continue;
        }
        const unsigned char* start = p;
        if (Utf8::decode(p, end) == Utf8::REPLACEMENT && !Utf8::isGenuineReplacement(start, p)) {
            return false;
        }
    }
    return true;
}

// The byte length of the character that begins with `lead`, in valid UTF-8.
size_t characterLength(char lead) {
    unsigned char c = static_cast<unsigned char>(lead);
    return c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
}

void clearResult(RegexMatch* result, const char* subject, size_t length) {
    if (result != nullptr) {
        result->groups.clear();
        result->subjectStart = subject;
        result->subjectEnd = subject + length;
        result->failure = RegexMatch::FAILURE_NONE;
    }
}

// \\ is a backslash; any other backslash stays as it is.
void appendUnescaped(Str& target, StrSegment text) {
    for (size_t i = 0; i < text.size(); ++i) {
        target.append(text[i]);
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\\') {
            ++i;
        }
    }
}

// A replacement, cut into literal text each followed by a group reference (-1 for none).
struct ReplacementPiece {
    Str literal;
    int64_t group;
};

std::vector<ReplacementPiece> parseReplacement(StrSegment replacement) {
    static const Regex reference("((?:[^\\\\]|(?:\\\\[\\D]))+|^)(?:\\\\(\\d+))");
    std::vector<ReplacementPiece> pieces;
    StrSegment rest = replacement;
    // Text that is not UTF-8 has no references.
    bool walk = isValidUtf8(replacement.data(), replacement.size());
    RegexMatch found;
    // The walk goes by what lies behind each match, so that ^ marks a reference right there.
    while (walk && !rest.empty() && reference.search(rest, &found)) {
        StrSegment digits = found.group(2);
        const char* backslash = digits.data() - 1;
        ReplacementPiece piece{Str(), 0};
        appendUnescaped(piece.literal, StrSegment(rest.data(), backslash - rest.data()));
        for (char digit : digits) {
            // Beyond any group count; such a reference inserts nothing.
            piece.group = std::min<int64_t>(piece.group * 10 + (digit - '0'), INT32_MAX);
        }
        pieces.push_back(std::move(piece));
        rest = StrSegment(digits.end(), rest.end() - digits.end());
    }
    ReplacementPiece tail{Str(), -1};
    appendUnescaped(tail.literal, rest);
    pieces.push_back(std::move(tail));
    return pieces;
}

}  // namespace

Regex::Regex(StrSegment pattern, uint64_t options)
    : record_(RegexCache::process().get(pattern, options)) {}

Regex Regex::caseless(StrSegment pattern, uint64_t options) {
    Str text("(?i)");
    text.append(pattern);
    return Regex(text, options);
}

Logger& Regex::logger() {
    static Logger instance("Regex");
    return instance;
}

bool Regex::search(const char* subject, size_t length, size_t* resumePos, RegexMatch* result,
                   StrSegment* rest, Mode mode) const {
    if (subject == nullptr) {
        subject = "";
        length = 0;
    }
    size_t start = resumePos != nullptr ? *resumePos : 0;
    size_t end = 0;
    // Checked on every call, a resumed one too: the library trusts what it is told was checked,
    // and an invalid subject could then end a match past its last byte.
    if (!searchFrom(subject, length, start, false, mode, result, nullptr, &end)) {
        return false;
    }
    if (resumePos != nullptr) {
        *resumePos = end;
    }
    if (rest != nullptr) {
        *rest = StrSegment(subject + end, length - end);
    }
    return true;
}

bool Regex::searchFrom(const char* subject, size_t length, size_t start, bool validated,
                       uint32_t mode, RegexMatch* result, size_t* matchStart,
                       size_t* matchEnd) const {
    if (start > length || (!validated && !isValidUtf8(subject, length)) ||
        (start < length && isContinuationByte(subject[start]))) {
        clearResult(result, subject, length);
        return false;
    }
    return record_->match(subject, length, start, mode, result, matchStart, matchEnd);
}

size_t Regex::groupStart(const RegexMatch& result, size_t n) {
    if (!result.matched(n)) {
        return Str::npos;
    }
    return static_cast<size_t>(result.groups[n].data() - result.subjectStart);
}

size_t Regex::groupEnd(const RegexMatch& result, size_t n) {
    if (!result.matched(n)) {
        return Str::npos;
    }
    return static_cast<size_t>(result.groups[n].end() - result.subjectStart);
}

int32_t Regex::groupNumber(StrSegment name, const RegexMatch* result) const {
    const std::vector<RegexRecord::Name>& names = record_->names();
    auto nameOf = [](const RegexRecord::Name& entry) {
        return std::string_view(entry.name, entry.length);
    };
    auto first = std::lower_bound(names.begin(), names.end(), name.view(),
                                  [&](const RegexRecord::Name& entry, std::string_view wanted) {
                                      return nameOf(entry) < wanted;
                                  });
    if (first == names.end() || nameOf(*first) != name.view()) {
        return -1;
    }
    if (result != nullptr && record_->dupNames()) {
        for (auto it = first; it != names.end() && nameOf(*it) == name.view(); ++it) {
            if (result->matched(it->group + 1)) {
                return static_cast<int32_t>(it->group + 1);
            }
        }
    }
    return static_cast<int32_t>(first->group + 1);
}

size_t Regex::replaceAll(StrSegment subject, StrSegment replacement, Str& target,
                         RegexMatch* result) const {
    RegexMatch local;
    RegexMatch& found = result != nullptr ? *result : local;
    const char* text = subject.data() != nullptr ? subject.data() : "";
    const size_t length = subject.size();
    if (!isValidUtf8(text, length)) {
        clearResult(&found, text, length);
        target.append(text, length);
        return 0;
    }
    const std::vector<ReplacementPiece> pieces = parseReplacement(replacement);
    size_t copied = 0;
    size_t count = 0;
    size_t matchStart = 0;
    size_t matchEnd = 0;
    while (searchFrom(text, length, copied, true, MODE_SEARCH, &found, &matchStart, &matchEnd)) {
        matchEnd = std::max(matchEnd, matchStart);
        target.append(text + copied, matchStart - copied);
        for (const ReplacementPiece& piece : pieces) {
            target.append(piece.literal);
            if (piece.group >= 0 && found.matched(static_cast<size_t>(piece.group))) {
                target.append(found.group(static_cast<size_t>(piece.group)));
            }
        }
        ++count;
        copied = matchEnd;
        if (matchEnd == matchStart) {
            // An empty match: step over one character, or the walk would find it again.
            if (matchEnd == length) {
                break;
            }
            size_t next = matchEnd + characterLength(text[matchEnd]);
            target.append(text + matchEnd, next - matchEnd);
            copied = next;
        }
    }
    target.append(text + copied, length - copied);
    return count;
}

}  // namespace morvax
