// Fuzz target of conf files read from disk, where conf_parser reads lines from memory: any bytes
// become a file that IniFile opens, detecting its encoding and mark and bounding its size. The
// file read by name, as an open file and as lines in memory gives the same image; a flush keeps
// the encoding, and once rewritten a file is a fixed point: read and flushed again, it is the
// same bytes.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "FuzzDiscardLog.h"
#include "FuzzScratch.h"
#include "FuzzSupport.h"
#include "conf/IniFile.h"
#include "util/base/StrSegment.h"
#include "util/io/FileStarOpen.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/io/ReadableUnicodeStreamLineReader.h"
#include "util/io/UnicodeEncoding.h"

namespace morvax {
namespace {

using fuzz::check;

// Everything the image holds, as one text.
std::string dump(const IniFile& file) {
    std::string out = "encoding " + std::to_string(file.encodingState()) + "\n";
    auto lines = [&out](const char* what, const std::vector<Str>& lines) {
        for (const Str& line : lines) {
            out.append(what).append(line.view()).append("\n");
        }
    };
    lines("head ", file.headComments());
    for (const auto& [name, stanza] : file.stanzas()) {
        lines("stanza comment ", stanza.comments);
        out.append("[").append(name.view()).append("]\n");
        for (const auto& [key, entry] : stanza.entries) {
            lines("entry comment ", entry.comments);
            out.append(key.view()).append(" = ").append(entry.value.view()).append("\n");
        }
    }
    lines("tail ", file.tailComments());
    return out;
}

// The image without the comments and line-end majority, which a rewrite may change.
std::string content(const IniFile& file) {
    std::string out =
        "encoding " + std::to_string(UnicodeEncoding::encodingOf(file.encodingState())) + "\n";
    for (const auto& [name, stanza] : file.stanzas()) {
        out.append("[").append(name.view()).append("]\n");
        for (const auto& [key, entry] : stanza.entries) {
            out.append(key.view()).append(" = ").append(entry.value.view()).append("\n");
        }
    }
    return out;
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    static const fuzz::ScratchDirectory scratch("ini");
    const std::filesystem::path path = scratch.path() / "fuzz.conf";
    const Pathname name = fuzz::ScratchDirectory::pathname(path);
    fuzz::check(fuzz::ScratchDirectory::write(path, data, size), "the input is written");

    IniFile byName(name);
    fuzz::check(byName.isLoaded(), "a file within the bound loads");
    FILE* open = openFileStar(name.c_str(), "rb");
    fuzz::check(open != nullptr, "the input opens");
    IniFile byFile(open, name);
    std::fclose(open);
    const StrSegment bytes(reinterpret_cast<const char*>(data), size);
    ReadableUnicodeMemoryStream stream(bytes, UnicodeEncoding::CRLF);
    ReadableUnicodeStreamLineReader reader(stream);
    IniFile byLines(reader, name);
    const std::string image = dump(byName);
    fuzz::check(dump(byFile) == image, "an open file reads as the file by name");
    fuzz::check(dump(byLines) == image, "lines in memory read as the file");
    for (const auto& [stanzaName, stanza] : byName.stanzas()) {
        for (const auto& [key, entry] : stanza.entries) {
            const Str* value = byName.value(stanzaName, key);
            fuzz::check(value != nullptr && *value == entry.value, "every key is found");
        }
    }

    // The first flush may rewrite what it cannot keep; after it the file is a fixed point.
    // Text with NUL is left out: without a mark, its zero bytes may read as UTF-16 next time.
    fuzz::check(byName.flush() != 0, "a flush succeeds");
    if (image.find('\0') != std::string::npos) {
        return 0;
    }
    const std::string once = fuzz::ScratchDirectory::read(path);
    IniFile rewritten(name);
    fuzz::check(rewritten.isLoaded(), "a flushed file reads back");
    const uint32_t encoding = UnicodeEncoding::encodingOf(byName.encodingState());
    // Wide text without a mark is known by its zero bytes alone, which depend on the text: a
    // guess that the rewritten text does not repeat is the guess's, not the rewrite's.
    // So is a UTF-32LE mark with nothing behind it: FF FE 00 00 alone reads as UTF-16LE.
    const bool guessed = ((byName.encodingState() & UnicodeEncoding::MARK) == 0 &&
                          encoding != UnicodeEncoding::UTF8) ||
                         (encoding == UnicodeEncoding::UTF32LE && once.size() == 4);
    if (guessed && UnicodeEncoding::encodingOf(rewritten.encodingState()) != encoding) {
        return 0;
    }
    if (encoding != UnicodeEncoding::EMPTY && encoding != UnicodeEncoding::UNKNOWN) {
        fuzz::check(
            UnicodeEncoding::encodingOf(rewritten.encodingState()) == encoding || once.empty(),
            "a flush keeps the encoding");
        fuzz::check((rewritten.encodingState() & UnicodeEncoding::MARK) ==
                        (byName.encodingState() & UnicodeEncoding::MARK),
                    "a flush keeps the byte-order mark");
    }
    fuzz::check(rewritten.flush() != 0, "a second flush succeeds");
    const std::string twice = fuzz::ScratchDirectory::read(path);
    fuzz::check(twice == once, "a rewritten file rewrites to the same bytes");
    IniFile again(name);
    fuzz::check(content(again) == content(rewritten), "a rewritten file reads the same");
    return 0;
}
