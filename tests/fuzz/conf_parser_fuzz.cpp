// Fuzz target of the conf file readers: any bytes go through ConfLineParser in both modes and
// through IniFile. Nothing may crash, what the parser hands out keeps its promises, and a file
// of well-formed text that is flushed and read again has the same stanzas and keys.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "FuzzDiscardLog.h"
#include "FuzzSupport.h"
#include "conf/ConfLineParser.h"
#include "conf/ConfWhiteSpace.h"
#include "conf/IniFile.h"
#include "util/base/Str.h"
#include "util/base/Utf8.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/io/ReadableUnicodeStreamLineReader.h"
#include "util/log/Logger.h"

namespace morvax {
namespace {

using fuzz::check;

// A directory of this process's own for the flushes, removed at exit.
class ScratchDirectory {
  public:
    ScratchDirectory() {
        std::random_device seed;
        path_ = std::filesystem::temp_directory_path() /
                ("morvax-conf-fuzz-" + std::to_string(seed()) + std::to_string(seed()));
        std::filesystem::create_directories(path_);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Pathname file(const char* name) const {
        const std::u8string text = (path_ / name).u8string();
        return Pathname(StrSegment(reinterpret_cast<const char*>(text.data()), text.size()));
    }

  private:
    std::filesystem::path path_;
};

bool isTrimmed(const Str& text) {
    return ConfWhiteSpace::trim(text).size() == text.size();
}

void parseLines(StrSegment bytes, const char* name, uint32_t mode) {
    ReadableUnicodeMemoryStream stream(bytes, UnicodeEncoding::CRLF);
    ReadableUnicodeStreamLineReader reader(stream);
    ConfLineParser parser(reader, Pathname(name), mode);
    Str line, key, value, diagnostic;
    uint32_t lastLine = 0;
    for (;;) {
        const ConfLineKind kind = parser.next(line, key, value, &diagnostic);
        if (kind == ConfLineKind::END_OF_FILE) {
            return;
        }
        check(parser.lineNumber() > lastLine, "every line read counts");
        lastLine = parser.lineNumber();
        if (kind == ConfLineKind::STANZA) {
            check(key.size() <= ConfLineParser::MAX_LINE_BYTES, "stanza name within the bound");
        } else if (kind == ConfLineKind::KEY_VALUE) {
            check(key.size() + value.size() <= ConfLineParser::MAX_LINE_BYTES,
                  "key and value within the bound");
            check(std::memchr(value.data(), '\0', value.size()) == nullptr, "no NUL in a value");
            check(isTrimmed(key) && isTrimmed(value), "key and value trimmed");
        } else if (kind == ConfLineKind::STAR_COMMENT) {
            check(mode == ConfLineParser::MODE_SPEC, "star comments only in spec mode");
        }
    }
}

// Text that a rewrite gives back as it was read: UTF-8 without NUL (which the decoder keeps
// but could take for UTF-16) and without a CR that does not end a line (written back escaped).
bool isPlainText(StrSegment bytes) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* end = p + bytes.size();
    while (p != end) {
        const unsigned char* start = p;
        const char32_t cp = Utf8::decode(p, end);
        if (cp == 0 || (cp == Utf8::REPLACEMENT && !Utf8::isGenuineReplacement(start, p)) ||
            (cp == '\r' && (p == end || *p != '\n'))) {
            return false;
        }
    }
    // Far from the line bound, so that escaping cannot push a line across it.
    return bytes.size() < ConfLineParser::MAX_LINE_BYTES / 4;
}

// Where a rewrite knowingly differs: an unparsed line that was joined is written back as the
// lines it held, and a key that begins like a comment is written as one.
bool rewritesExactly(const IniFile& file) {
    auto holdsLineBreak = [](const std::vector<Str>& lines) {
        for (const Str& line : lines) {
            if (line.find('\n') != Str::npos) {
                return true;
            }
        }
        return false;
    };
    if (holdsLineBreak(file.tailComments())) {
        return false;
    }
    for (const auto& [name, stanza] : file.stanzas()) {
        if (holdsLineBreak(stanza.comments)) {
            return false;
        }
        for (const auto& [key, entry] : stanza.entries) {
            if (holdsLineBreak(entry.comments) ||
                (!key.empty() && (key[0] == '#' || key[0] == ';'))) {
                return false;
            }
        }
    }
    return true;
}

std::vector<Str> shape(const IniFile& file) {
    std::vector<Str> out;
    for (const auto& [name, stanza] : file.stanzas()) {
        out.push_back(Str("[") + name);
        for (const auto& entry : stanza.entries) {
            out.push_back(entry.first);
        }
    }
    return out;
}

void roundTrip(StrSegment bytes, const ScratchDirectory& scratch) {
    ReadableUnicodeMemoryStream stream(bytes, UnicodeEncoding::CRLF);
    ReadableUnicodeStreamLineReader reader(stream);
    IniFile file(reader, scratch.file("fuzz.conf"));
    check(file.isLoaded(), "a parse from lines always loads");
    IniFile copy = file;
    check(shape(copy) == shape(file), "a copy has the same stanzas and keys");
    if (!isPlainText(bytes) || !rewritesExactly(file)) {
        return;
    }
    check(file.flush() != 0, "flush succeeds");
    IniFile again(file.path());
    check(again.isLoaded(), "the flushed file reads back");
    check(shape(again) == shape(file), "a rewrite keeps the stanzas and keys");
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    static const ScratchDirectory scratch;

    const StrSegment bytes(reinterpret_cast<const char*>(data), size);
    parseLines(bytes, "fuzz.conf", ConfLineParser::MODE_CONF);
    parseLines(bytes, "fuzz.spec", ConfLineParser::MODE_SPEC);
    roundTrip(bytes, scratch);
    return 0;
}
