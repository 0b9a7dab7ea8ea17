#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "util/base/Str.h"

namespace morvax {

// One parsed piece of a format: literal text or one conversion.
struct FormatSpec {
    enum Flag : uint32_t {
        FLAG_ALTERNATE = 1,
        FLAG_WIDTH_ARG = 2,
        FLAG_PRECISION_ARG = 4,
        FLAG_UPPER = 8,
        FLAG_GROUPING = 16,
    };
    enum Fill : uint32_t { FILL_SPACES = 0, FILL_LEFT = 1, FILL_ZEROS = 2 };
    enum Sign : uint32_t { SIGN_NONE = 0, SIGN_BLANK = 1, SIGN_PLUS = 2 };
    enum Kind : uint32_t {
        KIND_LITERAL = 0,
        KIND_SIGNED = 1,
        KIND_UNSIGNED = 2,
        KIND_HEX = 3,
        KIND_OCTAL = 4,
        KIND_FLOAT_E = 5,
        KIND_FLOAT_F = 6,
        KIND_FLOAT_G = 7,
        KIND_FLOAT_A = 8,
        KIND_CHAR = 9,
        KIND_STRING = 10,
        KIND_WIDE_CHAR = 11,
        KIND_WIDE_STRING = 12,
        KIND_ERROR_TEXT = 13,
        KIND_POINTER = 14,
    };
    static constexpr uint64_t ABSENT = ~uint64_t{0};

    uint32_t flags = 0;
    uint32_t fill = FILL_SPACES;
    uint32_t sign = SIGN_NONE;
    uint32_t kind = KIND_LITERAL;
    uint64_t argumentSize = 4;      // conversions
    const char* literal = nullptr;  // kind LITERAL: the text to copy
    uint64_t literalLength = 0;     // kind LITERAL
    uint64_t width = ABSENT;
    uint64_t precision = ABSENT;
};

// A byte sink that never allocates, for code that runs while the process is dying.
class FormatSink {
  public:
    virtual ~FormatSink() = default;
    virtual void write(const char* bytes, size_t length) = 0;
};

// The printf engine of the system. It never fails on a bad format: what it cannot parse it
// copies. Extra conversions: %m (text of an error value, no argument), %S (wide string), and a
// %p that prints null as "(nil)". Wide strings are char16_t.
class LogFormatter {
  public:
    // What the parser allows.
    enum Mask : unsigned {
        ALLOW_ERROR_TEXT = 1,
        ALLOW_NULL_POINTER = 2,
        ALLOW_WIDE = 4,
        ALLOW_Z_CONVERSION = 8,
        NORMAL_MASK = 7,
    };

    // Parses one piece at `*cursor` (up to `end`) into `spec` and advances the cursor.
    // Returns false only at the end of the format.
    static bool parse(const char*& cursor, const char* end, FormatSpec& spec,
                      unsigned mask = NORMAL_MASK);

    // Runs the engine into `target`. With `hasSavedError` false, %m reads the platform's
    // last error when the engine meets it.
    static void appendV(Str& target, const char* fmt, va_list args, bool hasSavedError,
                        uint32_t savedError);

    // The crash-safe form: no heap use; %m prints "[windows error #<code>]".
    static void formatToSink(FormatSink& sink, uint32_t errorCode, const char* fmt, ...);
    static void formatToSinkV(FormatSink& sink, uint32_t errorCode, const char* fmt, va_list args);

    // The text of an error value as %m prints it: system messages, then the directory and WMI
    // tables, then the fallback text.
    static void appendErrorText(Str& target, uint32_t code,
                                uint64_t precision = FormatSpec::ABSENT);

    // "%%%02X" for each byte outside `keep`.
    static void appendPercentEncoded(Str& target, StrSegment text, const CharSet& keep);
    // Printable bytes as they are, others as "\\x%02X".
    static void appendPrintable(Str& target, StrSegment text);
};

// Looks up a system message for an error code. False when the system has none.
class SystemErrorText {
  public:
    static bool lookup(uint32_t code, WStr& out);
};

}  // namespace morvax
