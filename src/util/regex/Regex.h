#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/regex/RegexMatch.h"
#include "util/regex/RegexRecord.h"

namespace morvax {

class Logger;

// A compiled regular expression (PCRE2, UTF-8). A handle to a record that the process-wide
// cache shares among every Regex of the same pattern and options; copying shares it too.
// Compiled once for searching and once for full matching. Subjects are UTF-8: one that is not
// never matches.
class Regex {
  public:
    enum Mode : uint32_t {
        MODE_SEARCH = 0,
        // The subject does not begin a line: ^ does not match at its start.
        MODE_NOT_BOL = 1,
        // The match must cover the subject from the start position to its end.
        MODE_FULL = 2,
        // Hard partial matching: a match cut off by the end of the subject counts.
        MODE_PARTIAL = 3,
    };

    // Above PCRE2's option bits: compile this pattern without JIT, whatever the process does.
    static constexpr uint64_t OPTION_NO_JIT = uint64_t{1} << 32;

    // `options` adds PCRE2 compile options (low 32 bits) and OPTION_NO_JIT. Throws
    // RegexException for a bad pattern.
    explicit Regex(StrSegment pattern, uint64_t options = 0);
    // The pattern, ignoring case.
    static Regex caseless(StrSegment pattern, uint64_t options = 0);

    Regex(const Regex& other) = default;
    Regex& operator=(const Regex& other) = default;
    ~Regex() = default;

    const Str& pattern() const { return record_->pattern(); }
    uint64_t options() const { return record_->options(); }
    uint32_t captureCount() const { return record_->captureCount(); }
    const RegexRecord& record() const { return *record_; }
    bool sharesRecordWith(const Regex& other) const { return record_ == other.record_; }

    // Looks for a match in subject[*resumePos, length), from 0 when `resumePos` is null. On a
    // match `*resumePos` becomes the end of the match and `rest` what lies behind it. `result`
    // gets the groups, or the failure of a runaway match. Every output may be null. A search
    // from 0 checks that the subject is UTF-8; one from further on trusts an earlier check.
    bool search(const char* subject, size_t length, size_t* resumePos, RegexMatch* result,
                StrSegment* rest, Mode mode = MODE_SEARCH) const;
    bool search(StrSegment subject, RegexMatch* result = nullptr) const {
        return search(subject.data(), subject.size(), nullptr, result, nullptr, MODE_SEARCH);
    }
    // Whether the whole subject matches.
    bool fullMatch(StrSegment subject, RegexMatch* result = nullptr) const {
        return search(subject.data(), subject.size(), nullptr, result, nullptr, MODE_FULL);
    }

    // Offsets of group `n` in the subject; npos for a group that did not take part.
    static size_t groupStart(const RegexMatch& result, size_t n);
    static size_t groupEnd(const RegexMatch& result, size_t n);

    // The number of the group called `name`, or -1. Where names repeat, the first of them that
    // took part in `result`, else the first.
    int32_t groupNumber(StrSegment name, const RegexMatch* result = nullptr) const;

    // Appends to `target` the subject with every match replaced by `replacement`, in which \N
    // stands for group N and \\ for a backslash. Returns the number of replacements. `result`,
    // if given, tells a failure that stopped the walk; the rest is copied as it is.
    size_t replaceAll(StrSegment subject, StrSegment replacement, Str& target,
                      RegexMatch* result = nullptr) const;

    // The log channel of the regex module.
    static Logger& logger();

  private:
    // `validated` says the subject was checked for UTF-8 already.
    bool searchFrom(const char* subject, size_t length, size_t start, bool validated, uint32_t mode,
                    RegexMatch* result, size_t* matchStart, size_t* matchEnd) const;

    std::shared_ptr<const RegexRecord> record_;
};

}  // namespace morvax
