#include "util/base/LogFormatter.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "util/base/Ascii.h"
#include "util/base/ErrorMessageTables.h"
#include "util/base/LastError.h"
#include "util/base/Utf8.h"

namespace morvax {

namespace {

constexpr size_t kMaxErrorTextUnits = 2048;
constexpr size_t kSinkPadBlock = 32;

// Where the engine writes: a Str, or a sink that must not allocate.
class Output {
  public:
    virtual ~Output() = default;
    virtual void write(const char* bytes, size_t length) = 0;
    virtual void pad(char c, size_t count) = 0;
    virtual bool crashSafe() const = 0;
    void write(const char* cstring) { write(cstring, std::strlen(cstring)); }
};

class StrOutput : public Output {
  public:
    explicit StrOutput(Str& target) : target_(target) {}
    void write(const char* bytes, size_t length) override { target_.append(bytes, length); }
    void pad(char c, size_t count) override { target_.append(count, c); }
    bool crashSafe() const override { return false; }

  private:
    Str& target_;
};

class SinkOutput : public Output {
  public:
    explicit SinkOutput(FormatSink& sink) : sink_(sink) {}
    void write(const char* bytes, size_t length) override {
        if (length) {
            sink_.write(bytes, length);
        }
    }
    void pad(char c, size_t count) override {
        char block[kSinkPadBlock];
        std::memset(block, c, sizeof block);
        while (count > 0) {
            size_t n = count < kSinkPadBlock ? count : kSinkPadBlock;
            sink_.write(block, n);
            count -= n;
        }
    }
    bool crashSafe() const override { return true; }

  private:
    FormatSink& sink_;
};

// va_list cannot be passed around by reference portably; a struct holding one can.
struct Arguments {
    va_list list;
};

// Reads decimal digits at `p`, saturating at 32 bits so that a huge width cannot overflow.
uint64_t readDecimal(const char*& p, const char* end) {
    uint64_t v = 0;
    while (p < end && isDigit(*p)) {
        v = v * 10 + static_cast<uint64_t>(*p - '0');
        if (v > 0xFFFFFFFFu) {
            v = 0xFFFFFFFFu;
        }
        ++p;
    }
    return v;
}

bool isSizedIntegerConversion(char c) {
    return std::strchr("Xdioux", c) != nullptr && c != '\0';
}

// Pads `body` (already rendered, `units` wide) to the conversion's width with blanks.
void writePadded(Output& out, const FormatSpec& spec, const char* body, size_t bytes,
                 size_t units) {
    size_t padding =
        (spec.width != FormatSpec::ABSENT && spec.width > units) ? spec.width - units : 0;
    if (padding && spec.fill != FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
    out.write(body, bytes);
    if (padding && spec.fill == FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
}

// Writes prefix (sign, 0x) and digits with width handling; zeros go between prefix and digits.
void writeNumber(Output& out, const FormatSpec& spec, const char* prefix, size_t prefixLength,
                 const char* digits, size_t digitsLength, bool allowZeroPad) {
    size_t total = prefixLength + digitsLength;
    size_t padding =
        (spec.width != FormatSpec::ABSENT && spec.width > total) ? spec.width - total : 0;
    if (spec.fill == FormatSpec::FILL_LEFT) {
        out.write(prefix, prefixLength);
        out.write(digits, digitsLength);
        out.pad(' ', padding);
    } else if (spec.fill == FormatSpec::FILL_ZEROS && allowZeroPad) {
        out.write(prefix, prefixLength);
        out.pad('0', padding);
        out.write(digits, digitsLength);
    } else {
        out.pad(' ', padding);
        out.write(prefix, prefixLength);
        out.write(digits, digitsLength);
    }
}

// Inserts a comma between groups of three digits of `digits[0, length)`, into `out`.
size_t groupDigits(const char* digits, size_t length, char* out) {
    size_t o = 0;
    for (size_t i = 0; i < length; ++i) {
        if (i > 0 && (length - i) % 3 == 0) {
            out[o++] = ',';
        }
        out[o++] = digits[i];
    }
    return o;
}

void renderInteger(Output& out, const FormatSpec& spec, uint64_t magnitude, bool negative) {
    char raw[32];
    size_t n = 0;
    const bool upper = spec.flags & FormatSpec::FLAG_UPPER;
    const bool alternate = spec.flags & FormatSpec::FLAG_ALTERNATE;
    const uint64_t precision = spec.precision;
    if (!(magnitude == 0 && precision == 0)) {
        char tmp[32];
        size_t t = 0;
        uint64_t v = magnitude;
        if (spec.kind == FormatSpec::KIND_HEX) {
            const char* hex = upper ? "0123456789ABCDEF" : "0123456789abcdef";
            do {
                tmp[t++] = hex[v & 15];
                v >>= 4;
            } while (v);
        } else if (spec.kind == FormatSpec::KIND_OCTAL) {
            do {
                tmp[t++] = static_cast<char>('0' + (v & 7));
                v >>= 3;
            } while (v);
        } else {
            do {
                tmp[t++] = static_cast<char>('0' + v % 10);
                v /= 10;
            } while (v);
        }
        while (t) {
            raw[n++] = tmp[--t];
        }
    }

    // Precision: minimum number of digits. Digits of a 64-bit value never exceed 22, so larger
    // precisions are written as zero padding.
    size_t leadingZeros = (precision != FormatSpec::ABSENT && precision > n) ? precision - n : 0;

    char grouped[48];
    const char* digits = raw;
    size_t digitsLength = n;
    if ((spec.flags & FormatSpec::FLAG_GROUPING) &&
        (spec.kind == FormatSpec::KIND_SIGNED || spec.kind == FormatSpec::KIND_UNSIGNED) && n > 3) {
        digitsLength = groupDigits(raw, n, grouped);
        digits = grouped;
    }

    char prefix[4];
    size_t prefixLength = 0;
    if (spec.kind == FormatSpec::KIND_SIGNED) {
        if (negative) {
            prefix[prefixLength++] = '-';
        } else if (spec.sign == FormatSpec::SIGN_PLUS) {
            prefix[prefixLength++] = '+';
        } else if (spec.sign == FormatSpec::SIGN_BLANK) {
            prefix[prefixLength++] = ' ';
        }
    } else if (spec.kind == FormatSpec::KIND_HEX && alternate && magnitude != 0) {
        prefix[prefixLength++] = '0';
        prefix[prefixLength++] = upper ? 'X' : 'x';
    } else if (spec.kind == FormatSpec::KIND_OCTAL && alternate && leadingZeros == 0 &&
               (n == 0 || raw[0] != '0')) {
        prefix[prefixLength++] = '0';
    }

    if (leadingZeros == 0) {
        writeNumber(out, spec, prefix, prefixLength, digits, digitsLength,
                    precision == FormatSpec::ABSENT);
        return;
    }
    // Rare path: explicit precision above the digit count.
    size_t total = prefixLength + leadingZeros + digitsLength;
    size_t padding =
        (spec.width != FormatSpec::ABSENT && spec.width > total) ? spec.width - total : 0;
    if (spec.fill != FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
    out.write(prefix, prefixLength);
    out.pad('0', leadingZeros);
    out.write(digits, digitsLength);
    if (spec.fill == FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
}

void renderNonFinite(Output& out, const FormatSpec& spec, double value) {
    const char* text = std::isnan(value) ? "NaN" : (value < 0 ? "-Infinity" : "Infinity");
    char body[8];
    size_t n = 0;
    if (*text == '-') {
        body[n++] = '-';
        ++text;
    } else if (spec.sign == FormatSpec::SIGN_PLUS) {
        body[n++] = '+';
    } else if (spec.sign == FormatSpec::SIGN_BLANK) {
        body[n++] = ' ';
    }
    const bool upper = spec.flags & FormatSpec::FLAG_UPPER;
    for (int i = 0; i < 3; ++i) {
        char c = text[i];
        if (upper && c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 32);
        } else if (!upper && c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
        body[n++] = c;
    }
    writePadded(out, spec, body, n, n);
}

// Rewrites an exponent written with three or more digits ("e+005") to at least two.
size_t normaliseExponent(char* text, size_t length) {
    char* e = nullptr;
    for (size_t i = 0; i < length; ++i) {
        if (text[i] == 'e' || text[i] == 'E') {
            e = text + i;
        }
    }
    if (!e || e + 2 >= text + length) {
        return length;
    }
    char* digits = e + 2;
    char* end = text + length;
    while (end - digits > 2 && *digits == '0') {
        std::memmove(digits, digits + 1, static_cast<size_t>(end - digits - 1));
        --end;
    }
    return static_cast<size_t>(end - text);
}

// Hexadecimal floating point of a non-negative finite value, without sign.
size_t renderHexFloat(char* buf, double value, uint64_t precision, bool upper, bool alternate) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    bits &= ~(uint64_t{1} << 63);
    int exponent = static_cast<int>((bits >> 52) & 0x7FF);
    uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);
    int lead;
    if (exponent == 0) {
        lead = 0;
        exponent = mantissa ? -1022 : 0;
    } else {
        lead = 1;
        exponent -= 1023;
    }
    int nibbles = 13;
    if (precision != FormatSpec::ABSENT && precision < 13) {
        int keep = static_cast<int>(precision);
        int drop = (13 - keep) * 4;
        uint64_t half = uint64_t{1} << (drop - 1);
        uint64_t rest = mantissa & ((uint64_t{1} << drop) - 1);
        mantissa >>= drop;
        if (rest >= half) {  // ties round upward
            ++mantissa;
            if (mantissa >> (keep * 4)) {
                mantissa &= (uint64_t{1} << (keep * 4)) - 1;
                ++lead;
            }
        }
        nibbles = keep;
    }
    const char* hex = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    size_t n = 0;
    buf[n++] = '0';
    buf[n++] = upper ? 'X' : 'x';
    buf[n++] = static_cast<char>('0' + lead);
    char frac[16];
    int fracLength = 0;
    for (int i = nibbles - 1; i >= 0; --i) {
        frac[fracLength++] = hex[(mantissa >> (i * 4)) & 15];
    }
    if (precision == FormatSpec::ABSENT) {
        while (fracLength > 0 && frac[fracLength - 1] == '0') {
            --fracLength;
        }
    }
    if (fracLength > 0 || alternate) {
        buf[n++] = '.';
    }
    std::memcpy(buf + n, frac, static_cast<size_t>(fracLength));
    n += static_cast<size_t>(fracLength);
    if (precision != FormatSpec::ABSENT && precision > 13) {
        size_t extra = precision - 13 > 64 ? 64 : precision - 13;
        std::memset(buf + n, '0', extra);
        n += extra;
    }
    buf[n++] = upper ? 'P' : 'p';
    n += static_cast<size_t>(std::snprintf(buf + n, 16, "%+d", exponent));
    return n;
}

void renderFloat(Output& out, const FormatSpec& spec, double value) {
    if (!std::isfinite(value)) {
        renderNonFinite(out, spec, value);
        return;
    }
    const bool upper = spec.flags & FormatSpec::FLAG_UPPER;
    const bool alternate = spec.flags & FormatSpec::FLAG_ALTERNATE;
    const bool negative = std::signbit(value);
    const double magnitude = std::fabs(value);

    char prefix[4];
    size_t prefixLength = 0;
    if (negative) {
        prefix[prefixLength++] = '-';
    } else if (spec.sign == FormatSpec::SIGN_PLUS) {
        prefix[prefixLength++] = '+';
    } else if (spec.sign == FormatSpec::SIGN_BLANK) {
        prefix[prefixLength++] = ' ';
    }

    // The largest %f of a double has 309 integer digits; precision is capped so that the
    // rendering fits a fixed buffer, which also keeps the crash-safe form allocation-free.
    constexpr int kMaxPrecision = 300;
    int precision =
        spec.precision == FormatSpec::ABSENT
            ? 6
            : static_cast<int>(spec.precision > kMaxPrecision ? kMaxPrecision : spec.precision);
    char buffer[720];
    char* digits = buffer;
    size_t length = 0;
    if (spec.kind == FormatSpec::KIND_FLOAT_A) {
        length = renderHexFloat(buffer, magnitude, spec.precision, upper, alternate);
        // "0x" belongs to the prefix, so that zero padding goes behind it.
        prefix[prefixLength++] = buffer[0];
        prefix[prefixLength++] = buffer[1];
        digits += 2;
        length -= 2;
    } else {
        char fmt[8];
        size_t f = 0;
        fmt[f++] = '%';
        if (alternate) {
            fmt[f++] = '#';
        }
        fmt[f++] = '.';
        fmt[f++] = '*';
        fmt[f++] = spec.kind == FormatSpec::KIND_FLOAT_E   ? (upper ? 'E' : 'e')
                   : spec.kind == FormatSpec::KIND_FLOAT_F ? 'f'
                                                           : (upper ? 'G' : 'g');
        fmt[f] = '\0';
        int written = std::snprintf(buffer, sizeof buffer, fmt, precision, magnitude);
        length = written < 0 ? 0 : static_cast<size_t>(written);
        if (length >= sizeof buffer) {
            length = sizeof buffer - 1;
        }
        length = normaliseExponent(digits, length);
    }

    if ((spec.flags & FormatSpec::FLAG_GROUPING) && spec.kind == FormatSpec::KIND_FLOAT_F) {
        size_t integerDigits = 0;
        while (integerDigits < length && isDigit(digits[integerDigits])) {
            ++integerDigits;
        }
        if (integerDigits > 3) {
            char grouped[720 + 120];
            size_t g = groupDigits(digits, integerDigits, grouped);
            std::memcpy(grouped + g, digits + integerDigits, length - integerDigits);
            writeNumber(out, spec, prefix, prefixLength, grouped, g + length - integerDigits, true);
            return;
        }
    }
    writeNumber(out, spec, prefix, prefixLength, digits, length, true);
}

// UTF-8 of wide text, written in small pieces so that the crash-safe form does not allocate.
void writeWide(Output& out, const char16_t* text, size_t units) {
    char buf[64];
    size_t n = 0;
    for (size_t i = 0; i < units; ++i) {
        char32_t u = text[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            u = 0x10000 + ((u - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (u >= 0xD800 && u <= 0xDFFF) {
            u = Utf8::REPLACEMENT;
        }
        if (n + 4 > sizeof buf) {
            out.write(buf, n);
            n = 0;
        }
        n += Utf8::encode(u, buf + n);
    }
    out.write(buf, n);
}

void renderWideString(Output& out, const FormatSpec& spec, const char16_t* text) {
    static const char16_t kNull[] = u"(null)";
    if (!text) {
        text = kNull;
    }
    size_t units = 0;
    while (text[units] && (spec.precision == FormatSpec::ABSENT || units < spec.precision)) {
        ++units;
    }
    size_t padding =
        (spec.width != FormatSpec::ABSENT && spec.width > units) ? spec.width - units : 0;
    if (spec.fill != FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
    writeWide(out, text, units);
    if (spec.fill == FormatSpec::FILL_LEFT) {
        out.pad(' ', padding);
    }
}

void renderErrorText(Output& out, const FormatSpec& spec, uint32_t code) {
    if (out.crashSafe()) {
        char text[48];
        int n = std::snprintf(text, sizeof text, "[windows error #%u]", code);
        size_t length = n < 0 ? 0 : static_cast<size_t>(n);
        if (spec.precision != FormatSpec::ABSENT && spec.precision < length) {
            length = spec.precision;
        }
        writePadded(out, spec, text, length, length);
        return;
    }
    Str text;
    LogFormatter::appendErrorText(text, code, spec.precision);
    writePadded(out, spec, text.data(), text.size(), text.size());
}

void run(Output& out, const char* fmt, Arguments& args, bool hasSavedError, uint32_t savedError) {
    if (!fmt) {
        return;
    }
    const char* cursor = fmt;
    const char* end = fmt + std::strlen(fmt);
    FormatSpec spec;
    while (LogFormatter::parse(cursor, end, spec)) {
        if (spec.kind == FormatSpec::KIND_LITERAL) {
            out.write(spec.literal, spec.literalLength);
            continue;
        }
        if (spec.flags & FormatSpec::FLAG_WIDTH_ARG) {
            int w = va_arg(args.list, int);
            if (w < 0) {
                spec.fill = FormatSpec::FILL_LEFT;
                spec.width = static_cast<uint64_t>(-static_cast<int64_t>(w));
            } else {
                spec.width = static_cast<uint64_t>(w);
            }
        }
        if (spec.flags & FormatSpec::FLAG_PRECISION_ARG) {
            int p = va_arg(args.list, int);
            spec.precision = p < 0 ? FormatSpec::ABSENT : static_cast<uint64_t>(p);
        }
        switch (spec.kind) {
            case FormatSpec::KIND_SIGNED: {
                if (spec.precision != FormatSpec::ABSENT && spec.fill == FormatSpec::FILL_ZEROS) {
                    spec.fill = FormatSpec::FILL_SPACES;
                }
                int64_t v = spec.argumentSize > 4 ? va_arg(args.list, long long)
                                                  : static_cast<int64_t>(va_arg(args.list, int));
                uint64_t magnitude =
                    v < 0 ? uint64_t{0} - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
                renderInteger(out, spec, magnitude, v < 0);
                break;
            }
            case FormatSpec::KIND_UNSIGNED:
            case FormatSpec::KIND_HEX:
            case FormatSpec::KIND_OCTAL: {
                if (spec.precision != FormatSpec::ABSENT && spec.fill == FormatSpec::FILL_ZEROS) {
                    spec.fill = FormatSpec::FILL_SPACES;
                }
                uint64_t v = spec.argumentSize > 4
                                 ? static_cast<uint64_t>(va_arg(args.list, unsigned long long))
                                 : static_cast<uint64_t>(va_arg(args.list, unsigned int));
                renderInteger(out, spec, v, false);
                break;
            }
            case FormatSpec::KIND_FLOAT_E:
            case FormatSpec::KIND_FLOAT_F:
            case FormatSpec::KIND_FLOAT_G:
            case FormatSpec::KIND_FLOAT_A:
                renderFloat(out, spec, va_arg(args.list, double));
                break;
            case FormatSpec::KIND_CHAR: {
                char c = static_cast<char>(va_arg(args.list, int));
                writePadded(out, spec, &c, 1, 1);
                break;
            }
            case FormatSpec::KIND_WIDE_CHAR: {
                char16_t c = static_cast<char16_t>(va_arg(args.list, int));
                char buf[4];
                size_t n = Utf8::encode(c, buf);
                writePadded(out, spec, buf, n, 1);
                break;
            }
            case FormatSpec::KIND_STRING: {
                const char* s = va_arg(args.list, const char*);
                if (!s) {
                    s = "(null)";
                }
                size_t n = spec.precision != FormatSpec::ABSENT
                               ? strnlen(s, static_cast<size_t>(spec.precision))
                               : std::strlen(s);
                writePadded(out, spec, s, n, n);
                break;
            }
            case FormatSpec::KIND_WIDE_STRING:
                renderWideString(out, spec, va_arg(args.list, const char16_t*));
                break;
            case FormatSpec::KIND_ERROR_TEXT:
                renderErrorText(out, spec, hasSavedError ? savedError : LastError::get());
                break;
            case FormatSpec::KIND_POINTER: {
                const void* p = va_arg(args.list, const void*);
                if (!p) {
                    writePadded(out, spec, "(nil)", 5, 5);
                } else {
                    spec.kind = FormatSpec::KIND_HEX;
                    renderInteger(out, spec, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)),
                                  false);
                }
                break;
            }
            default:
                break;
        }
    }
}

}  // namespace

bool LogFormatter::parse(const char*& cursor, const char* end, FormatSpec& spec, unsigned mask) {
    if (cursor >= end) {
        return false;
    }
    spec = FormatSpec();
    const char* start = cursor;
    if (*start != '%') {
        const void* next = std::memchr(start, '%', static_cast<size_t>(end - start));
        const char* stop = next ? static_cast<const char*>(next) : end;
        spec.literal = start;
        spec.literalLength = static_cast<uint64_t>(stop - start);
        cursor = stop;
        return true;
    }

    // A format that ends inside a conversion writes a single '%'.
    auto truncated = [&]() {
        spec = FormatSpec();
        spec.literal = start;
        spec.literalLength = 1;
        cursor = end;
        return true;
    };

    const char* p = start + 1;
    // Flags.
    for (bool more = true; more && p < end;) {
        switch (*p) {
            case ' ':
                if (spec.sign == FormatSpec::SIGN_NONE) {
                    spec.sign = FormatSpec::SIGN_BLANK;
                }
                ++p;
                break;
            case '#':
                spec.flags |= FormatSpec::FLAG_ALTERNATE;
                ++p;
                break;
            case '\'':
                spec.flags |= FormatSpec::FLAG_GROUPING;
                ++p;
                break;
            case '+':
                spec.sign = FormatSpec::SIGN_PLUS;
                ++p;
                break;
            case '-':
                spec.fill = FormatSpec::FILL_LEFT;
                ++p;
                break;
            case '0':
                if (spec.fill != FormatSpec::FILL_LEFT) {
                    spec.fill = FormatSpec::FILL_ZEROS;
                }
                ++p;
                break;
            case 'I': {
                // "I" is a size when an integer conversion follows, directly or behind 32/64.
                const char* q = p + 1;
                if (end - q >= 2 &&
                    ((q[0] == '3' && q[1] == '2') || (q[0] == '6' && q[1] == '4'))) {
                    q += 2;
                }
                if (q < end && isSizedIntegerConversion(*q)) {
                    more = false;
                } else {
                    ++p;
                }
                break;
            }
            default:
                more = false;
        }
    }
    if (p >= end) {
        return truncated();
    }
    // Width.
    if (*p == '*') {
        spec.flags |= FormatSpec::FLAG_WIDTH_ARG;
        ++p;
    } else if (*p >= '1' && *p <= '9') {
        spec.width = readDecimal(p, end);
    }
    if (p >= end) {
        return truncated();
    }
    // Precision.
    if (*p == '.') {
        ++p;
        if (p < end && *p == '*') {
            spec.flags |= FormatSpec::FLAG_PRECISION_ARG;
            ++p;
        } else {
            spec.precision = readDecimal(p, end);
        }
    }
    if (p >= end) {
        return truncated();
    }
    // Length.
    switch (*p) {
        case 'h':
            if (p + 1 < end && p[1] == 'h') {
                spec.argumentSize = 1;
                p += 2;
            } else {
                spec.argumentSize = 2;
                ++p;
            }
            break;
        case 'l':
            if (p + 1 < end && p[1] == 'l') {
                spec.argumentSize = 8;
                p += 2;
            } else {
                spec.argumentSize = 4;
                ++p;
            }
            break;
        case 'q':
        case 'j':
        case 't':
            spec.argumentSize = 8;
            ++p;
            break;
        case 'z':
            if (!(mask & ALLOW_Z_CONVERSION)) {
                spec.argumentSize = 8;
                ++p;
            }
            break;
        case 'I':
            if (end - p >= 3 && p[1] == '3' && p[2] == '2') {
                spec.argumentSize = 4;
                p += 3;
            } else if (end - p >= 3 && p[1] == '6' && p[2] == '4') {
                spec.argumentSize = 8;
                p += 3;
            } else {
                spec.argumentSize = 8;
                ++p;
            }
            break;
        default:
            break;
    }
    if (p >= end) {
        return truncated();
    }
    const bool hasLong = p > start && p[-1] == 'l' && spec.argumentSize == 4;
    const bool hasShort = p > start && p[-1] == 'h' && spec.argumentSize == 2;
    const char conversion = *p++;
    cursor = p;

    auto copyAsText = [&]() {
        spec = FormatSpec();
        spec.literal = start;
        spec.literalLength = static_cast<uint64_t>(p - start);
        return true;
    };

    switch (conversion) {
        case '%':
            spec = FormatSpec();
            spec.literal = p - 1;
            spec.literalLength = 1;
            return true;
        case 'd':
        case 'i':
            spec.kind = FormatSpec::KIND_SIGNED;
            break;
        case 'u':
            spec.kind = FormatSpec::KIND_UNSIGNED;
            spec.sign = FormatSpec::SIGN_NONE;
            break;
        case 'x':
        case 'X':
            spec.kind = FormatSpec::KIND_HEX;
            spec.sign = FormatSpec::SIGN_NONE;
            if (conversion == 'X') {
                spec.flags |= FormatSpec::FLAG_UPPER;
            }
            break;
        case 'o':
            spec.kind = FormatSpec::KIND_OCTAL;
            spec.sign = FormatSpec::SIGN_NONE;
            break;
        case 'e':
        case 'E':
            spec.kind = FormatSpec::KIND_FLOAT_E;
            break;
        case 'f':
        case 'F':
            spec.kind = FormatSpec::KIND_FLOAT_F;
            break;
        case 'g':
        case 'G':
            spec.kind = FormatSpec::KIND_FLOAT_G;
            break;
        case 'a':
        case 'A':
            spec.kind = FormatSpec::KIND_FLOAT_A;
            break;
        case 'c':
            spec.kind = hasLong ? FormatSpec::KIND_WIDE_CHAR : FormatSpec::KIND_CHAR;
            break;
        case 'C':
            spec.kind = hasShort ? FormatSpec::KIND_CHAR : FormatSpec::KIND_WIDE_CHAR;
            break;
        case 's':
            spec.kind = hasLong ? FormatSpec::KIND_WIDE_STRING : FormatSpec::KIND_STRING;
            break;
        case 'S':
            spec.kind = hasShort ? FormatSpec::KIND_STRING : FormatSpec::KIND_WIDE_STRING;
            break;
        case 'm':
            if (!(mask & ALLOW_ERROR_TEXT)) {
                return copyAsText();
            }
            spec.kind = FormatSpec::KIND_ERROR_TEXT;
            break;
        case 'p':
            if (!(mask & ALLOW_NULL_POINTER)) {
                // Without the null-aware form a pointer prints as upper-case hexadecimal.
                spec.kind = FormatSpec::KIND_HEX;
                spec.flags |= FormatSpec::FLAG_UPPER;
                spec.argumentSize = sizeof(void*);
                break;
            }
            spec.kind = FormatSpec::KIND_POINTER;
            spec.flags |= FormatSpec::FLAG_ALTERNATE;
            spec.argumentSize = sizeof(void*);
            break;
        default:
            return copyAsText();
    }
    if ((spec.kind == FormatSpec::KIND_WIDE_CHAR || spec.kind == FormatSpec::KIND_WIDE_STRING) &&
        !(mask & ALLOW_WIDE)) {
        return copyAsText();
    }
    if (conversion == 'E' || conversion == 'F' || conversion == 'G' || conversion == 'A') {
        spec.flags |= FormatSpec::FLAG_UPPER;
    }
    return true;
}

void LogFormatter::appendV(Str& target, const char* fmt, va_list args, bool hasSavedError,
                           uint32_t savedError) {
    LastErrorPreserver keep;
    StrOutput out(target);
    Arguments copy;
    va_copy(copy.list, args);
    run(out, fmt, copy, hasSavedError, savedError);
    va_end(copy.list);
}

void LogFormatter::formatToSink(FormatSink& sink, uint32_t errorCode, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    formatToSinkV(sink, errorCode, fmt, args);
    va_end(args);
}

void LogFormatter::formatToSinkV(FormatSink& sink, uint32_t errorCode, const char* fmt,
                                 va_list args) {
    SinkOutput out(sink);
    Arguments copy;
    va_copy(copy.list, args);
    run(out, fmt, copy, true, errorCode);
    va_end(copy.list);
}

void LogFormatter::appendErrorText(Str& target, uint32_t code, uint64_t precision) {
    LastErrorPreserver keep;
    WStr text;
    const char16_t* tableText = nullptr;
    if (!SystemErrorText::lookup(code, text)) {
        tableText = ErrorMessageTables::find(code);
        if (!tableText) {
            Str fallback;
            fallback.appendFormat("FormatMessage was unable to decode error (%lu), (0x%x)", code,
                                  code);
            if (precision != FormatSpec::ABSENT && precision < fallback.size()) {
                fallback.resize(static_cast<size_t>(precision));
            }
            target.append(fallback);
            return;
        }
        text = tableText;
    }
    while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n')) {
        text.pop_back();
    }
    Str narrow;
    if (text.size() > kMaxErrorTextUnits) {
        narrow.appendFormat("FormatMessage returned a %u character result!",
                            static_cast<unsigned>(text.size()));
    } else {
        narrow.appendWide(text);
    }
    if (precision != FormatSpec::ABSENT && precision < narrow.size()) {
        narrow.resize(static_cast<size_t>(precision));
    }
    target.append(narrow);
}

void LogFormatter::appendPercentEncoded(Str& target, StrSegment text, const CharSet& keep) {
    for (char c : text) {
        if (keep.contains(c)) {
            target.append(c);
        } else {
            target.appendFormat("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
        }
    }
}

void LogFormatter::appendPrintable(Str& target, StrSegment text) {
    for (char c : text) {
        unsigned char b = static_cast<unsigned char>(c);
        if (b >= 0x20 && b < 0x7F) {
            target.append(c);
        } else {
            target.appendFormat("\\x%02X", static_cast<unsigned>(b));
        }
    }
}

}  // namespace morvax
