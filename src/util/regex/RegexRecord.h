#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/regex/RegexMatch.h"

struct pcre2_real_code_8;

namespace morvax {

// One compiled pattern, in its search form and its full-match form. Immutable once compiled,
// so that every Regex of the same pattern and options can share it across threads.
class RegexRecord {
  public:
    // An entry of the name table. `group` is the group number minus 1; `name` points into the
    // compiled pattern.
    struct Name {
        const char* name;
        size_t length;
        uint32_t group;
    };

    // Compiles `pattern` in UTF mode with the PCRE2 compile options in the low 32 bits of
    // `options` added, with JIT when `jit`. Throws RegexException with the library's text for a
    // bad pattern, std::bad_alloc when memory runs out.
    static std::unique_ptr<const RegexRecord> compile(StrSegment pattern, uint64_t options,
                                                      bool jit);
    ~RegexRecord();

    RegexRecord(const RegexRecord&) = delete;
    RegexRecord& operator=(const RegexRecord&) = delete;

    // Matches the subject from `start` with a match mode of Regex. On a match the offsets of
    // the whole match go to `matchStart` and `matchEnd`. Every output may be null. The subject
    // must be valid UTF-8 and `start` on a character boundary: the library does not check.
    bool match(const char* subject, size_t length, size_t start, uint32_t mode, RegexMatch* result,
               size_t* matchStart = nullptr, size_t* matchEnd = nullptr) const;

    bool hasFullForm() const { return fullCode_ != nullptr; }
    bool searchJit() const { return searchJit_; }
    bool fullJit() const { return fullJit_; }
    uint32_t captureCount() const { return captureCount_; }
    const std::vector<Name>& names() const { return names_; }
    bool dupNames() const { return dupNames_; }
    const Str& pattern() const { return pattern_; }
    uint64_t options() const { return options_; }

  private:
    RegexRecord(StrSegment pattern, uint64_t options) : pattern_(pattern), options_(options) {}
    void readPatternInfo();

    pcre2_real_code_8* code_ = nullptr;
    bool searchJit_ = false;
    pcre2_real_code_8* fullCode_ = nullptr;
    bool fullJit_ = false;
    uint32_t captureCount_ = 0;
    std::vector<Name> names_;
    bool dupNames_ = false;
    Str pattern_;
    uint64_t options_;
};

}  // namespace morvax
