#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "conf/IniStanza.h"
#include "conf/OrderedDictionary.h"
#include "util/base/Str.h"
#include "util/io/LineReader.h"
#include "util/io/Pathname.h"

namespace morvax {

class WritableUnicodeStream;

// A faithful in-memory image of one conf file: its comments, its stanzas and keys in file
// order, and its encoding, byte-order mark and majority line end, so that flush() writes back
// what was read. On a key given twice in a stanza the first value stays (with a warning).
//
// Two states: loaded (error() empty) and unusable (error() holds why). A missing file is
// ordinary: the open failure is logged at DEBUG only and the caller decides.
//
// Bounds: a file opened here is read up to MAX_FILE_BYTES; a longer one is refused as a whole
// (error() says so, nothing of it is kept, and the path is dropped, so that a flush cannot
// replace the file by the part that was read). Lines are bounded by ConfLineParser.
//
// Not thread-safe: one thread at a time.
class IniFile {
  public:
    static constexpr uint64_t MAX_FILE_BYTES = 64ull * 1024 * 1024;

    // Empty, with the error "Not yet initialized".
    IniFile();
    // Opens and parses the file.
    explicit IniFile(const Pathname& path);
    // Parses an open file (borrowed; it stays open), or the lines of a reader, with `path` as
    // the name in messages and the destination of flush().
    IniFile(FILE* file, const Pathname& path);
    IniFile(LineReader& reader, const Pathname& path);

    IniFile(const IniFile&) = default;
    IniFile& operator=(const IniFile&) = default;
    IniFile(IniFile&&) noexcept = default;
    IniFile& operator=(IniFile&&) noexcept = default;
    ~IniFile();

    // Sets the path, opens and parses. A failed open keeps the old content and sets error().
    // True when the file was read.
    bool parse(const Pathname& path);

    // Erases the stanza. When it is the first and another follows, the blank lines before the
    // next one's header go, so that the file does not begin with a blank separator line.
    void removeStanza(const Str& name);

    // Writes the image to path() through a temporary file beside it and a rename, so that the
    // destination is either the old file or the whole new one. Non-zero on success; on
    // failure error() holds the text and the temporary file is gone.
    int flush();

    const Str& error() const { return error_; }
    bool isLoaded() const { return error_.empty(); }

    const Pathname& path() const { return path_; }
    void setPath(const Pathname& path) { path_ = path; }

    // The encoding state word (UnicodeEncoding) that flush() writes with.
    uint32_t encodingState() const { return encodingState_; }
    void setEncodingState(uint32_t state) { encodingState_ = state; }

    // Raw lines before the first stanza or key, and after the last one.
    std::vector<Str>& headComments() { return headComments_; }
    const std::vector<Str>& headComments() const { return headComments_; }
    std::vector<Str>& tailComments() { return tailComments_; }
    const std::vector<Str>& tailComments() const { return tailComments_; }

    OrderedDictionary<IniStanza>& stanzas() { return stanzas_; }
    const OrderedDictionary<IniStanza>& stanzas() const { return stanzas_; }
    // Null when absent.
    const IniStanza* stanza(const Str& name) const { return stanzas_.find(name); }
    const Str* value(const Str& stanzaName, const Str& key) const;

  private:
    void parseFile(FILE* file);
    void parseLines(LineReader& reader);
    // Writes the image to an open temporary file; false when a write failed.
    bool writeTo(WritableUnicodeStream& stream) const;
    // Keeps `text` as the error and logs it at `level`.
    void fail(int32_t level, Str text);

    Str error_;
    std::vector<Str> headComments_;
    std::vector<Str> tailComments_;
    OrderedDictionary<IniStanza> stanzas_;
    Pathname path_;
    uint32_t encodingState_;
};

}  // namespace morvax
