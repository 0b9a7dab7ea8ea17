// Fuzz target of the log configuration reader: any bytes, in any encoding the text streams
// detect, go through the parser with and without a section. Every entry reads again from its
// own line to itself, entries written back in their plain form read back the same, and every
// conversion pattern of the input compiles and renders within its widths.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzDiscardLog.h"
#include "FuzzSupport.h"
#include "util/base/Ascii.h"
#include "util/base/LogLevel.h"
#include "util/base/Str.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/log/LogConfParser.h"
#include "util/log/LogConfiguration.h"
#include "util/log/LogPattern.h"

namespace morvax {
namespace {

using fuzz::check;

// The most a non-literal atom of a pattern writes beside its width: a date of widest atoms, a
// thread name, a number.
constexpr size_t kMaxAtomText = 1024 * 64;

bool sameEntry(const LogConfEntry& a, const LogConfEntry& b) {
    return a.kind == b.kind && a.name == b.name && a.key == b.key && a.value == b.value;
}

bool isTrimmed(const Str& text) {
    return text.empty() || (!isBlank(text[0]) && !isBlank(text.back()));
}

// The entry in its plain form, one line.
Str render(const LogConfEntry& entry) {
    Str line;
    switch (entry.kind) {
        case LogConfEntry::ROOT_CATEGORY:
            line.append("rootCategory");
            break;
        case LogConfEntry::CATEGORY:
            line.append("category.").append(entry.name);
            break;
        case LogConfEntry::APPENDER:
            line.append("appender.").append(entry.name);
            break;
        case LogConfEntry::APPENDER_KEY:
            line.append("appender.").append(entry.name).append(".").append(entry.key);
            break;
    }
    return line.append(" = ").append(entry.value);
}

// Text that a rewrite reads as it is: no comment marks, no line ends, no NUL (which would make
// the text look like UTF-16).
bool rewritable(const Str& text) {
    for (char c : text.view()) {
        if (c == '#' || c == '\n' || c == '\r' || c == '\0') {
            return false;
        }
    }
    return text.find(StrSegment("<!--")) == Str::npos;
}

size_t countLines(StrSegment bytes) {
    ReadableUnicodeMemoryStream stream(bytes);
    Str line;
    size_t lines = 0;
    while (stream.readLine(line)) {
        ++lines;
    }
    return lines;
}

void checkPattern(StrSegment text) {
    const LogPattern pattern(text);
    check(pattern.text() == text, "a pattern keeps its text");
    LogPattern::Fields fields;
    fields.time = Timeval(Timeval::UNIX_EPOCH_TICKS + 1622548800ULL * Timeval::TICKS_PER_SECOND);
    fields.timeOrigin = Timeval(fields.time.ticks() - 15005000ULL);
    fields.level = LOG_WARN;
    fields.loggerName = "WMI";
    Str message;
    message.append(200, 'm');
    fields.message = message;
    const Str thread("thread");
    fields.threadName = &thread;
    fields.threadId = 42;

    size_t bound = message.size() + 2;
    for (const LogPattern::Atom& atom : pattern.atoms()) {
        // A literal has a width too: "%04096n" is a line end padded to 4096 bytes.
        bound += atom.width + (atom.kind == LogPattern::LITERAL ? atom.text.size()
                                                                : kMaxAtomText + message.size());
        check(atom.width <= 4096, "pattern widths within their bound");
    }
    Str plain;
    pattern.render(fields, plain);
    check(plain.size() <= bound, "a plain line within the pattern's widths");
    fields.serialization = 2;
    Str json;
    pattern.render(fields, json);
    check(json.size() <= bound + 64 * pattern.atoms().size(), "a JSON line within its bound");
}

void checkValues(const Str& value) {
    uint64_t number = 0;
    if (LogConfiguration::parseSize(value, UINT32_MAX, number)) {
        check(number <= UINT32_MAX, "a size within its limit");
        uint64_t again = 0;
        check(LogConfiguration::parseSize(Str(std::to_string(number)), UINT32_MAX, again) &&
                  again == number,
              "a size reads back from its digits");
    }
    LogConfiguration::parseBufferSize(value, number);
    bool flag = false;
    LogConfiguration::parseBoolean(value, flag);
    const int32_t level = LogConfiguration::levelFromName(value);
    check(level == -1 || (level >= LOG_DEBUG && level <= LOG_EMERG), "a known level");
}

void checkParse(StrSegment bytes, const char* section) {
    LogConfParser parser(section, "fuzz.conf");
    parser.parse(bytes);
    const size_t lines = countLines(bytes);

    uint32_t last = 0;
    bool allRewritable = true;
    for (const LogConfEntry& entry : parser.entries()) {
        check(!entry.line.empty() && isTrimmed(entry.line), "an entry's line is trimmed text");
        check(entry.lineNumber >= 1 && entry.lineNumber <= lines, "an entry on a line read");
        check(entry.lineNumber >= last, "entries in the order of their lines");
        last = entry.lineNumber;
        check(isTrimmed(entry.value) && isTrimmed(entry.key), "values and keys are trimmed");
        check(entry.kind == LogConfEntry::ROOT_CATEGORY || !entry.name.empty(),
              "categories and appenders have names");
        check(entry.kind != LogConfEntry::APPENDER_KEY || !entry.key.empty(),
              "appender keys have names");
        LogConfEntry again;
        check(LogConfParser::parseEntry(entry.line, again) && sameEntry(again, entry),
              "an entry reads again from its line");
        allRewritable = allRewritable && rewritable(entry.name) && rewritable(entry.key) &&
                        rewritable(entry.value);
        if (entry.kind == LogConfEntry::APPENDER_KEY &&
            entry.key == StrSegment("layout.ConversionPattern")) {
            checkPattern(entry.value);
        }
        checkValues(entry.value);
    }
    for (const LogConfError& error : parser.errors()) {
        check(error.lineNumber >= 1 && error.lineNumber <= lines, "an error on a line read");
        check(error.fileName == StrSegment("fuzz.conf"), "an error names its file");
    }

    if (!allRewritable) {
        return;
    }
    Str text;
    for (const LogConfEntry& entry : parser.entries()) {
        text.append(render(entry)).append('\n');
    }
    LogConfParser reread(nullptr, "fuzz.conf");
    reread.parse(text);
    check(reread.errors().empty(), "entries written back read without errors");
    check(reread.entries().size() == parser.entries().size(), "entries written back read as many");
    for (size_t i = 0; i < reread.entries().size(); ++i) {
        check(sameEntry(reread.entries()[i], parser.entries()[i]),
              "entries written back read the same");
    }
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    const StrSegment bytes(reinterpret_cast<const char*>(data), size);
    checkParse(bytes, nullptr);
    checkParse(bytes, "wmi");
    // The whole input as a pattern too: a pattern is any text of a configuration.
    if (size <= 4096) {
        checkPattern(bytes);
    }
    return 0;
}
