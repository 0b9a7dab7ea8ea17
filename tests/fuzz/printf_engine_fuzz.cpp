// Fuzz target of the printf engine. The first bytes of an input are the argument values, the
// rest up to a NUL is the format. The format is split into its pieces by the parser; each
// conversion is then rendered on its own with an argument of the type it reads, so that the
// engine meets every format without ever reading an argument that is not there. The pieces
// cover the format exactly, the heap and the crash-safe outputs agree, widths are honoured,
// integers read back to their value, and where the C library has the same conversion, its
// output is ours.

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "util/base/BaseException.h"
#include "util/base/CharSet.h"
#include "util/base/LogFormatter.h"
#include "util/base/Str.h"

namespace morvax {
namespace {

using fuzz::check;

// Widths and precisions beyond this are parsed but not rendered: the engine pads what it is
// told to, and four gigabytes of blanks prove nothing.
constexpr uint64_t kMaxRendered = 1 << 16;
// The most any conversion adds beside its padding and its argument's text.
constexpr size_t kMaxBody = 2048 * 3 + 1024;
// The error value %m is rendered with.
constexpr uint32_t kErrorCode = 2;

const char* const kNarrowTexts[] = {"", "text", "caf\xC3\xA9 \x01\x7F\xFF", "%d%s%n"};
const char16_t kWideA[] = u"wide";
const char16_t kWideB[] = {u'a', 0xD800, u'b', 0xD83D, 0xDE00, 0xDC00, 0};
const char16_t* const kWideTexts[] = {u"", kWideA, kWideB};

class CollectingSink : public FormatSink {
  public:
    void write(const char* bytes, size_t length) override { text.append(bytes, length); }
    std::string text;
};

// What one input gives every conversion.
struct Values {
    uint64_t raw = 0;
    double real = 0;
    int width = 0;
    int precision = 0;
    const char* text = "";
    const char16_t* wide = u"";
};

bool isIntegerKind(uint32_t kind) {
    return kind == FormatSpec::KIND_SIGNED || kind == FormatSpec::KIND_UNSIGNED ||
           kind == FormatSpec::KIND_HEX || kind == FormatSpec::KIND_OCTAL;
}

#if !defined(_WIN32)
bool isFloatKind(uint32_t kind) {
    return kind >= FormatSpec::KIND_FLOAT_E && kind <= FormatSpec::KIND_FLOAT_A;
}
#endif

// The signed value of `raw` in `size` bytes.
int64_t signedOfSize(uint64_t raw, uint64_t size) {
    switch (size) {
        case 1:
            return static_cast<int8_t>(raw);
        case 2:
            return static_cast<int16_t>(raw);
        case 4:
            return static_cast<int32_t>(raw);
        default:
            return static_cast<int64_t>(raw);
    }
}

uint64_t unsignedOfSize(uint64_t raw, uint64_t size) {
    return size >= 8 ? raw : raw & ((uint64_t{1} << (8 * size)) - 1);
}

// Calls `render` with the star arguments (`*` width and precision) the conversion takes,
// then `rest`.
template <typename Render, typename... Rest>
void withStars(const FormatSpec& spec, const Values& values, Render&& render, Rest... rest) {
    const bool width = spec.flags & FormatSpec::FLAG_WIDTH_ARG;
    const bool precision = spec.flags & FormatSpec::FLAG_PRECISION_ARG;
    if (width && precision) {
        render(values.width, values.precision, rest...);
    } else if (width) {
        render(values.width, rest...);
    } else if (precision) {
        render(values.precision, rest...);
    } else {
        render(rest...);
    }
}

// Calls `render` with every argument the conversion of `spec` reads, of the type it reads.
template <typename Render>
void withArguments(const FormatSpec& spec, const Values& values, Render&& render) {
    switch (spec.kind) {
        case FormatSpec::KIND_SIGNED:
            if (spec.argumentSize > 4) {
                withStars(spec, values, render,
                          static_cast<long long>(signedOfSize(values.raw, 8)));
            } else {
                withStars(spec, values, render,
                          static_cast<int>(signedOfSize(values.raw, spec.argumentSize)));
            }
            break;
        case FormatSpec::KIND_UNSIGNED:
        case FormatSpec::KIND_HEX:
        case FormatSpec::KIND_OCTAL:
            if (spec.argumentSize > 4) {
                withStars(spec, values, render, static_cast<unsigned long long>(values.raw));
            } else {
                withStars(spec, values, render,
                          static_cast<unsigned>(unsignedOfSize(values.raw, spec.argumentSize)));
            }
            break;
        case FormatSpec::KIND_FLOAT_E:
        case FormatSpec::KIND_FLOAT_F:
        case FormatSpec::KIND_FLOAT_G:
        case FormatSpec::KIND_FLOAT_A:
            withStars(spec, values, render, values.real);
            break;
        case FormatSpec::KIND_CHAR:
        case FormatSpec::KIND_WIDE_CHAR:
            withStars(spec, values, render, static_cast<int>(values.raw & 0xFFFF));
            break;
        case FormatSpec::KIND_STRING:
            withStars(spec, values, render, values.text);
            break;
        case FormatSpec::KIND_WIDE_STRING:
            withStars(spec, values, render, values.wide);
            break;
        case FormatSpec::KIND_POINTER:
            withStars(spec, values, render,
                      values.raw & 1 ? static_cast<const void*>(&values)
                                     : static_cast<const void*>(nullptr));
            break;
        default:
            withStars(spec, values, render);
            break;
    }
}

BaseException makeException(const char* prefix, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    BaseException e(kErrorCode, prefix, fmt, args);
    va_end(args);
    return e;
}

// The width and precision the renderer will use: from the format or the star arguments.
void effectiveBounds(const FormatSpec& spec, const Values& values, uint64_t& width,
                     uint64_t& precision, bool& left) {
    width = spec.width;
    precision = spec.precision;
    left = spec.fill == FormatSpec::FILL_LEFT;
    if (spec.flags & FormatSpec::FLAG_WIDTH_ARG) {
        left = left || values.width < 0;
        width = static_cast<uint64_t>(values.width < 0 ? -int64_t{values.width} : values.width);
    }
    if (spec.flags & FormatSpec::FLAG_PRECISION_ARG) {
        precision =
            values.precision < 0 ? FormatSpec::ABSENT : static_cast<uint64_t>(values.precision);
    }
}

// Digits of an integer rendering read back: blanks, sign, 0x and grouping commas dropped.
bool readsBack(std::string_view text, const FormatSpec& spec, const Values& values) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && text[begin] == ' ') {
        ++begin;
    }
    while (end > begin && text[end - 1] == ' ') {
        --end;
    }
    std::string digits(text.substr(begin, end - begin));
    bool negative = false;
    if (!digits.empty() && (digits[0] == '-' || digits[0] == '+' || digits[0] == ' ')) {
        negative = digits[0] == '-';
        digits.erase(0, 1);
    }
    int base = 10;
    if (spec.kind == FormatSpec::KIND_HEX) {
        base = 16;
        if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
            digits.erase(0, 2);
        }
    } else if (spec.kind == FormatSpec::KIND_OCTAL) {
        base = 8;
    }
    std::string plain;
    for (char c : digits) {
        if (c != ',') {
            plain.push_back(c);
        }
    }
    uint64_t expected;
    bool expectNegative = false;
    if (spec.kind == FormatSpec::KIND_SIGNED) {
        const int64_t v = signedOfSize(values.raw, spec.argumentSize > 4 ? 8 : spec.argumentSize);
        expectNegative = v < 0;
        expected = v < 0 ? uint64_t{0} - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    } else {
        expected = unsignedOfSize(values.raw, spec.argumentSize > 4 ? 8 : spec.argumentSize);
    }
    if (plain.empty()) {
        // Precision 0 prints no digit of a zero.
        return expected == 0;
    }
    errno = 0;
    char* stop = nullptr;
    const unsigned long long got = std::strtoull(plain.c_str(), &stop, base);
    return errno == 0 && *stop == '\0' && got == expected && negative == expectNegative;
}

#if !defined(_WIN32)
// The piece is a conversion the C library renders the same way: standard flags, a length
// that selects the same argument, and nothing the engine documents as its own.
bool sameAsLibc(std::string_view piece, uint64_t precision) {
    size_t i = 1;
    bool zero = false;
    bool alternate = false;
    while (i < piece.size() && std::strchr("-+ #0", piece[i]) != nullptr) {
        zero = zero || piece[i] == '0';
        alternate = alternate || piece[i] == '#';
        ++i;
    }
    while (i < piece.size() && ((piece[i] >= '0' && piece[i] <= '9') || piece[i] == '*')) {
        ++i;
    }
    if (i < piece.size() && piece[i] == '.') {
        ++i;
        while (i < piece.size() && ((piece[i] >= '0' && piece[i] <= '9') || piece[i] == '*')) {
            ++i;
        }
    }
    const size_t lengthStart = i;
    while (i < piece.size() && (piece[i] == 'h' || piece[i] == 'l')) {
        ++i;
    }
    const std::string_view length = piece.substr(lengthStart, i - lengthStart);
    if (i + 1 != piece.size()) {
        return false;
    }
    const char conversion = piece[i];
    // The C library refuses what does not fit an int.
    if (precision != FormatSpec::ABSENT && precision > INT32_MAX) {
        return false;
    }
    if (std::strchr("diouxX", conversion) != nullptr) {
        return (length.empty() || length == "hh" || length == "h" || length == "l" ||
                length == "ll") &&
               (!alternate || std::strchr("oxX", conversion) != nullptr);
    }
    if (std::strchr("eEfFgG", conversion) != nullptr) {
        // Precision is capped at 300 digits, a documented difference.
        return (length.empty() || length == "l") &&
               (precision == FormatSpec::ABSENT || precision <= 300);
    }
    if (conversion == 'c' || conversion == 's') {
        // A precision of %c means nothing in C.
        return length.empty() && !zero && !alternate &&
               (conversion == 's' || precision == FormatSpec::ABSENT);
    }
    return false;
}

template <typename... Args>
std::string libc(const char* fmt, Args... args) {
    char buffer[kMaxRendered + 1024];
    const int n = std::snprintf(buffer, sizeof buffer, fmt, args...);
    return n < 0 ? std::string("<error>") : std::string(buffer, static_cast<size_t>(n));
}

// The C library's rendering with the C types of the piece's length modifier.
std::string libcRendering(const char* piece, std::string_view text, const FormatSpec& spec,
                          const Values& values) {
    const char conversion = text.back();
    const bool ll = text.find("ll") != std::string_view::npos;
    const bool l = !ll && text.find('l') != std::string_view::npos;
    std::string out;
    auto render = [&](auto... args) { out = libc(piece, args...); };
    if (conversion == 'd' || conversion == 'i') {
        const int64_t v = signedOfSize(values.raw, spec.argumentSize > 4 ? 8 : spec.argumentSize);
        if (ll) {
            withStars(spec, values, render, static_cast<long long>(v));
        } else if (l) {
            withStars(spec, values, render, static_cast<long>(v));
        } else {
            withStars(spec, values, render, static_cast<int>(v));
        }
    } else if (std::strchr("ouxX", conversion) != nullptr) {
        const uint64_t v =
            unsignedOfSize(values.raw, spec.argumentSize > 4 ? 8 : spec.argumentSize);
        if (ll) {
            withStars(spec, values, render, static_cast<unsigned long long>(v));
        } else if (l) {
            withStars(spec, values, render, static_cast<unsigned long>(v));
        } else {
            withStars(spec, values, render, static_cast<unsigned>(v));
        }
    } else if (conversion == 'c') {
        withStars(spec, values, render, static_cast<int>(static_cast<char>(values.raw & 0xFFFF)));
    } else if (conversion == 's') {
        withStars(spec, values, render, values.text);
    } else {
        withStars(spec, values, render, values.real);
    }
    return out;
}
#endif

// Renders one piece alone and checks what the engine promises about it.
void renderPiece(std::string_view text, const FormatSpec& spec, const Values& values) {
    uint64_t width;
    uint64_t precision;
    bool left;
    effectiveBounds(spec, values, width, precision, left);
    if ((width != FormatSpec::ABSENT && width > kMaxRendered) ||
        ((isIntegerKind(spec.kind) || spec.kind == FormatSpec::KIND_POINTER) &&
         precision != FormatSpec::ABSENT && precision > kMaxRendered)) {
        return;
    }
    const std::string piece(text);
    Str heap;
    CollectingSink sink;
    Str exceptionText;
    withArguments(spec, values, [&](auto... args) {
        heap.appendFormatError(kErrorCode, piece.c_str(), args...);
        LogFormatter::formatToSink(sink, kErrorCode, piece.c_str(), args...);
        exceptionText = makeException("prefix: ", piece.c_str(), args...).message();
    });
    const std::string_view out = heap.view();

    check(exceptionText.view() == "prefix: " + std::string(out),
          "an exception's message is its prefix and the formatted text");
    if (spec.kind == FormatSpec::KIND_ERROR_TEXT) {
        char expected[48];
        std::snprintf(expected, sizeof expected, "[windows error #%u]", kErrorCode);
        check(sink.text.find(std::string(expected).substr(
                  0, precision == FormatSpec::ABSENT ? std::string::npos : precision)) !=
                  std::string::npos,
              "the crash-safe %m names the error value");
    } else {
        check(sink.text == out, "the crash-safe form writes what the heap form writes");
    }
    if (spec.kind == FormatSpec::KIND_LITERAL) {
        check(out.size() <= 1 || out == text, "a literal piece is copied");
        return;
    }

    size_t argumentText = 0;
    if (spec.kind == FormatSpec::KIND_STRING) {
        argumentText = std::strlen(values.text);
    } else if (spec.kind == FormatSpec::KIND_WIDE_STRING) {
        argumentText = 3 * std::char_traits<char16_t>::length(values.wide);
    }
    const size_t padded = width != FormatSpec::ABSENT ? width : 0;
    const size_t zeros = (isIntegerKind(spec.kind) || spec.kind == FormatSpec::KIND_POINTER) &&
                                 precision != FormatSpec::ABSENT
                             ? precision
                             : 0;
    check(out.size() <= padded + zeros + argumentText + kMaxBody, "output within its bound");
    check(out.size() >= padded, "output at least as wide as the width");
    if (left && width != FormatSpec::ABSENT && width > 0 && out.size() == width &&
        spec.kind != FormatSpec::KIND_STRING && spec.kind != FormatSpec::KIND_CHAR) {
        // Left-justified output never starts with padding (strings may begin with a blank).
        check(out.front() != ' ' || spec.sign == FormatSpec::SIGN_BLANK ||
                  out.find_first_not_of(' ') == std::string_view::npos,
              "left-justified output is padded on the right");
    }
    if (isIntegerKind(spec.kind)) {
        check(readsBack(out, spec, values), "an integer reads back to its value");
    }
    if (spec.kind == FormatSpec::KIND_FLOAT_A && precision == FormatSpec::ABSENT &&
        std::isfinite(values.real) && !(spec.flags & FormatSpec::FLAG_GROUPING)) {
        std::string trimmed(out);
        trimmed.erase(0, trimmed.find_first_not_of(' '));
        check(std::strtod(trimmed.c_str(), nullptr) == values.real,
              "a hexadecimal float reads back exactly");
    }
#if !defined(_WIN32)
    if (sameAsLibc(text, precision) && !(isFloatKind(spec.kind) && !std::isfinite(values.real))) {
        check(libcRendering(piece.c_str(), text, spec, values) == out,
              "a standard conversion renders as the C library renders it");
    }
#endif
}

// Splits the format with `mask`: the pieces are contiguous, each advances, and none reads
// past the end.
void checkParse(const char* begin, const char* end, unsigned mask) {
    const char* cursor = begin;
    FormatSpec spec;
    for (;;) {
        const char* before = cursor;
        if (!LogFormatter::parse(cursor, end, spec, mask)) {
            check(before == end, "parsing stops only at the end");
            return;
        }
        check(cursor > before && cursor <= end, "every piece advances within the format");
        check(spec.kind <= FormatSpec::KIND_POINTER, "a known kind");
        if (spec.kind == FormatSpec::KIND_LITERAL) {
            check(spec.literal >= begin && spec.literal + spec.literalLength <= end &&
                      spec.literalLength <= static_cast<uint64_t>(cursor - before),
                  "a literal lies within its piece");
        }
        check(spec.width == FormatSpec::ABSENT || spec.width <= 0xFFFFFFFFu,
              "a width within 32 bits");
        check(spec.precision == FormatSpec::ABSENT || spec.precision <= 0xFFFFFFFFu,
              "a precision within 32 bits");
    }
}

void checkEscapes(std::string_view bytes) {
    static constexpr CharSet keep(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~");
    Str encoded;
    LogFormatter::appendPercentEncoded(encoded, StrSegment(bytes.data(), bytes.size()), keep);
    std::string decoded;
    for (size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] == '%') {
            check(i + 2 < encoded.size(), "an escape has two digits");
            decoded.push_back(static_cast<char>(
                std::strtoul(std::string(encoded.data() + i + 1, 2).c_str(), nullptr, 16)));
            i += 2;
        } else {
            decoded.push_back(encoded[i]);
        }
    }
    check(decoded == bytes, "percent encoding decodes to its input");

    Str printable;
    LogFormatter::appendPrintable(printable, StrSegment(bytes.data(), bytes.size()));
    check(printable.size() <= 4 * bytes.size(), "printable text at most four bytes a byte");
    for (char c : printable.view()) {
        check(c >= 0x20 && c < 0x7F, "printable text holds printable bytes only");
    }
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    constexpr size_t kHeader = 18;
    uint8_t header[kHeader] = {};
    std::memcpy(header, data, size < kHeader ? size : kHeader);
    Values values;
    std::memcpy(&values.raw, header, 8);
    std::memcpy(&values.real, header + 8, 8);
    values.width = static_cast<int8_t>(header[16]) * 3;
    values.precision = static_cast<int>(header[17]) - 5;
    values.text = kNarrowTexts[header[0] % (sizeof kNarrowTexts / sizeof *kNarrowTexts)];
    values.wide = kWideTexts[header[1] % (sizeof kWideTexts / sizeof *kWideTexts)];

    const size_t formatSize = size > kHeader ? size - kHeader : 0;
    const char* formatBytes = reinterpret_cast<const char*>(data) + (size - formatSize);
    // The engine takes C strings: the format ends at the first NUL.
    const std::string format(formatBytes, strnlen(formatBytes, formatSize));
    checkEscapes(std::string_view(formatBytes, formatSize));

    const char* begin = format.c_str();
    const char* end = begin + format.size();
    checkParse(begin, end, LogFormatter::NORMAL_MASK);
    checkParse(begin, end, LogFormatter::NORMAL_MASK | LogFormatter::ALLOW_Z_CONVERSION);
    checkParse(begin, end, 0);

    // Each piece on its own; the whole format when it reads no argument.
    bool readsArguments = false;
    Str joined;
    const char* cursor = begin;
    FormatSpec spec;
    for (const char* before = cursor; LogFormatter::parse(cursor, end, spec); before = cursor) {
        const std::string_view piece(before, static_cast<size_t>(cursor - before));
        renderPiece(piece, spec, values);
        if (spec.kind == FormatSpec::KIND_LITERAL) {
            joined.append(spec.literal, spec.literalLength);
        } else if (spec.kind == FormatSpec::KIND_ERROR_TEXT &&
                   !(spec.flags & (FormatSpec::FLAG_WIDTH_ARG | FormatSpec::FLAG_PRECISION_ARG))) {
            if (spec.width == FormatSpec::ABSENT || spec.width <= kMaxRendered) {
                joined.appendFormatError(kErrorCode, std::string(piece).c_str());
            } else {
                readsArguments = true;
            }
        } else {
            readsArguments = true;
        }
    }
    if (!readsArguments) {
        Str whole;
        whole.appendFormatError(kErrorCode, begin);
        check(whole == joined, "a format renders as its pieces");
    }
    return 0;
}
