#include "util/regex/RegexRecord.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "util/log/Logger.h"
#include "util/regex/CrashlogAnnotateRegexCompile.h"
#include "util/regex/Regex.h"
#include "util/regex/RegexException.h"
#include "util/regex/RegexThreadMatchData.h"

#include <pcre2.h>

namespace morvax {

namespace {

const uint32_t BASE_COMPILE_OPTIONS = PCRE2_UTF | PCRE2_AUTO_CALLOUT;
// The compile error the library gives for a failed allocation; it has no public name.
const int COMPILE_ERROR_NO_MEMORY = 121;
const size_t ERROR_TEXT_SIZE = 512;

// Null on a compile error, with `errorCode` set; throws when memory runs out.
pcre2_code* compileCode(StrSegment pattern, uint32_t options, int& errorCode) {
    PCRE2_SIZE errorOffset = 0;
    pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                     options, &errorCode, &errorOffset, nullptr);
    if (code == nullptr && errorCode == COMPILE_ERROR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    return code;
}

bool hasJitCode(const pcre2_code* code) {
    size_t size = 0;
    return pcre2_pattern_info(code, PCRE2_INFO_JITSIZE, &size) == 0 && size > 0;
}

}  // namespace

std::unique_ptr<const RegexRecord> RegexRecord::compile(StrSegment pattern, uint64_t options,
                                                        bool jit) {
    std::unique_ptr<RegexRecord> record(new RegexRecord(pattern, options));
    CrashlogAnnotateRegexCompile notation(record->pattern_);
    const uint32_t compileOptions = BASE_COMPILE_OPTIONS | static_cast<uint32_t>(options);

    int errorCode = 0;
    record->code_ = compileCode(record->pattern_, compileOptions, errorCode);
    if (record->code_ == nullptr) {
        PCRE2_UCHAR text[ERROR_TEXT_SIZE];
        int length = pcre2_get_error_message(errorCode, text, sizeof(text));
        Str message("Regex: ");
        if (length > 0) {
            message.append(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
        }
        throw RegexException(message);
    }

    if (jit) {
        notation.setPhase("during JIT compile");
        pcre2_jit_compile(record->code_, PCRE2_JIT_COMPLETE | PCRE2_JIT_PARTIAL_HARD);
        record->searchJit_ = hasJitCode(record->code_);
        notation.setPhase(nullptr);
    }

    record->readPatternInfo();

    // Anchored at both ends by the pattern itself, so that the engine backtracks into the
    // alternatives until the whole subject is covered (a|ab on "ab").
    notation.setPhase("compiling full-match pattern");
    Str full("(?:");
    full.append(record->pattern_);
    full.append(")\\z");
    record->fullCode_ = compileCode(full, compileOptions | PCRE2_ANCHORED, errorCode);
    if (record->fullCode_ != nullptr && jit) {
        notation.setPhase("during full-match JIT compile");
        pcre2_jit_compile(record->fullCode_, PCRE2_JIT_COMPLETE);
        record->fullJit_ = hasJitCode(record->fullCode_);
    }
    return record;
}

void RegexRecord::readPatternInfo() {
    uint32_t allOptions = 0;
    int rc = pcre2_pattern_info(code_, PCRE2_INFO_CAPTURECOUNT, &captureCount_);
    if (rc == 0) {
        rc = pcre2_pattern_info(code_, PCRE2_INFO_ALLOPTIONS, &allOptions);
    }
    if (rc != 0) {
        Regex::logger().error("Failed to lookup PCRE options with return=%d (regex=%s).", rc,
                              pattern_.c_str());
    }

    uint32_t count = 0;
    uint32_t entrySize = 0;
    PCRE2_SPTR table = nullptr;
    if (pcre2_pattern_info(code_, PCRE2_INFO_NAMECOUNT, &count) != 0 ||
        pcre2_pattern_info(code_, PCRE2_INFO_NAMEENTRYSIZE, &entrySize) != 0 ||
        pcre2_pattern_info(code_, PCRE2_INFO_NAMETABLE, &table) != 0) {
        Regex::logger().error("Failed to get info about name table (regex=%s).", pattern_.c_str());
        count = 0;
    }
    names_.reserve(count);
    for (uint32_t i = 0; i < count && entrySize > 2; ++i) {
        const unsigned char* entry = table + static_cast<size_t>(i) * entrySize;
        uint32_t group = (static_cast<uint32_t>(entry[0]) << 8) | entry[1];
        const char* name = reinterpret_cast<const char*>(entry + 2);
        const void* end = std::memchr(name, '\0', entrySize - 2);
        size_t length =
            end ? static_cast<size_t>(static_cast<const char*>(end) - name) : entrySize - 2;
        names_.push_back(Name{name, length, group - 1});
    }
    std::sort(names_.begin(), names_.end(), [](const Name& a, const Name& b) {
        std::string_view left(a.name, a.length);
        std::string_view right(b.name, b.length);
        return left != right ? left < right : a.group < b.group;
    });
    // Duplicate names come from the option or from (?J) inside the pattern; the table tells
    // both apart from nothing.
    dupNames_ = (allOptions & PCRE2_DUPNAMES) != 0;
    for (size_t i = 1; i < names_.size() && !dupNames_; ++i) {
        dupNames_ = std::string_view(names_[i - 1].name, names_[i - 1].length) ==
                    std::string_view(names_[i].name, names_[i].length);
    }
}

RegexRecord::~RegexRecord() {
    if (code_ != nullptr) {
        pcre2_code_free(code_);
    }
    if (fullCode_ != nullptr) {
        pcre2_code_free(fullCode_);
    }
}

bool RegexRecord::match(const char* subject, size_t length, size_t start, uint32_t mode,
                        RegexMatch* result, size_t* matchStart, size_t* matchEnd) const {
    if (result != nullptr) {
        result->groups.clear();
        result->subjectStart = subject;
        result->subjectEnd = subject + length;
        result->failure = RegexMatch::FAILURE_NONE;
    }
    if (start > length) {
        return false;
    }

    const pcre2_code* code = code_;
    bool jit = searchJit_;
    uint32_t options = PCRE2_NO_UTF_CHECK;
    bool checkCoverage = false;
    switch (mode) {
        case Regex::MODE_NOT_BOL:
            options |= PCRE2_NOTBOL;
            break;
        case Regex::MODE_FULL:
            if (fullCode_ != nullptr) {
                code = fullCode_;
                jit = fullJit_;
            } else {
                // A pattern that cannot be wrapped: anchor the search form at match time,
                // which only the interpreter can do.
                options |= PCRE2_ANCHORED | PCRE2_ENDANCHORED | PCRE2_NO_JIT;
                jit = false;
                checkCoverage = true;
            }
            break;
        case Regex::MODE_PARTIAL:
            options |= PCRE2_PARTIAL_HARD;
            break;
        default:
            break;
    }

    pcre2_match_data* data = RegexThreadMatchData::get(captureCount_ + 1);
    PCRE2_SPTR bytes = reinterpret_cast<PCRE2_SPTR>(subject);
    int rc;
    if (jit) {
        rc = pcre2_jit_match(code, bytes, length, start, options, data, nullptr);
        // The JIT stack is small and fixed; the interpreter keeps its frames on the heap.
        if (rc == PCRE2_ERROR_JIT_STACKLIMIT || rc == PCRE2_ERROR_JIT_BADOPTION) {
            rc = pcre2_match(code, bytes, length, start, options | PCRE2_NO_JIT, data, nullptr);
        }
    } else {
        rc = pcre2_match(code, bytes, length, start, options, data, nullptr);
    }

    if (rc < 0 && rc != PCRE2_ERROR_PARTIAL) {
        switch (rc) {
            case PCRE2_ERROR_DEPTHLIMIT:
                Regex::logger().error(
                    "Failed in pcre_exec: Error PCRE_ERROR_DEPTHLIMIT for regex: %s",
                    pattern_.c_str());
                if (result != nullptr) {
                    result->failure = RegexMatch::FAILURE_DEPTH_LIMIT;
                }
                break;
            case PCRE2_ERROR_MATCHLIMIT:
                Regex::logger().error(
                    "Failed in pcre_exec: Error PCRE_ERROR_MATCHLIMIT for regex: %s",
                    pattern_.c_str());
                if (result != nullptr) {
                    result->failure = RegexMatch::FAILURE_MATCH_LIMIT;
                }
                break;
            case PCRE2_ERROR_NOMEMORY:
                throw std::bad_alloc();
            default:
                break;
        }
        return false;
    }

    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
    if (checkCoverage && (ovector[0] != start || ovector[1] != length)) {
        return false;
    }
    if (matchStart != nullptr) {
        *matchStart = ovector[0];
    }
    if (matchEnd != nullptr) {
        *matchEnd = ovector[1];
    }
    if (result != nullptr) {
        // A partial match sets only the whole-match pair.
        size_t setPairs = rc == PCRE2_ERROR_PARTIAL ? 1 : static_cast<size_t>(rc);
        result->groups.resize(captureCount_ + 1);
        for (size_t i = 0; i < setPairs && i <= captureCount_; ++i) {
            PCRE2_SIZE from = ovector[2 * i];
            PCRE2_SIZE to = ovector[2 * i + 1];
            if (from == PCRE2_UNSET) {
                continue;
            }
            // \K inside a lookahead can put the start behind the end.
            result->groups[i] = StrSegment(subject + from, to > from ? to - from : 0);
        }
    }
    return true;
}

}  // namespace morvax
