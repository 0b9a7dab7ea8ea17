#pragma once

#include <cstddef>
#include <cstdint>

#include "conf/ConfLineKind.h"
#include "util/base/Str.h"
#include "util/io/LineReader.h"
#include "util/io/Pathname.h"

namespace morvax {

// Classifies the lines of a .conf, .meta or .spec file one at a time: blank lines, comments,
// stanza headers and key/value pairs, with continuation lines joined. Every fault is a warning
// on the channel "IniFile"; parsing never stops before the end of the input.
//
// Bounds: a logical line (continuation lines joined) longer than MAX_LINE_BYTES is not taken
// apart: it is warned about and returned as UNPARSED, whole, so that no stanza name, key or
// value is ever longer. The parser holds no more than a few copies of one logical line; the
// source bounds that (IniFile reads at most IniFile::MAX_FILE_BYTES of a file).
//
// Not thread-safe: one thread at a time.
class ConfLineParser {
  public:
    static constexpr uint32_t MODE_CONF = 0;
    // .spec reading: a line that begins with '*' is a comment too.
    static constexpr uint32_t MODE_SPEC = 1;
    static constexpr size_t MAX_LINE_BYTES = 1024 * 1024;

    // `reader` is borrowed and must outlive the parser. `path` names the file in messages and
    // decides by its extension how ".spec" and ".meta" files are treated.
    ConfLineParser(LineReader& reader, const Pathname& path, uint32_t mode = MODE_CONF);

    // Reads the next logical line. `line` gets its text, continuation lines joined by LF. For
    // STANZA `key` gets the stanza name; for KEY_VALUE `key` and `value` get both, trimmed of
    // white space. `diagnostic`, when given, gets the warning of an UNPARSED line.
    ConfLineKind next(Str& line, Str& key, Str& value, Str* diagnostic = nullptr);

    // "<file>, line <n>", for messages.
    Str location() const;
    // Physical lines read so far, continuation lines included.
    uint32_t lineNumber() const { return lineNumber_; }
    // The extension of the file name: what follows the last dot of the last component.
    const Str& extension() const { return extension_; }
    static Str extensionOf(const Pathname& path);

    // Logs at WARN the location, `what` and `line`: the form of every warning about a line.
    void warn(StrSegment what, StrSegment line);

  private:
    void joinContinuations(Str& line);
    ConfLineKind readStanza(const Str& line, size_t bracket, Str& key);
    ConfLineKind readKeyValue(const Str& line, Str& key, Str& value, Str* diagnostic);
    ConfLineKind unparsed(const Str& line, Str* diagnostic);

    LineReader& reader_;
    Str pathText_;
    Str extension_;
    uint32_t mode_;
    uint32_t lineNumber_ = 0;
    // Reused for each continuation line.
    Str continuation_;
};

}  // namespace morvax
