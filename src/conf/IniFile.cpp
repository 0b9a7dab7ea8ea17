#include "conf/IniFile.h"

#include <iterator>
#include <utility>

#include "conf/ConfLineParser.h"
#include "conf/ConfWhiteSpace.h"
#include "conf/IniFileLogger.h"
#include "util/base/LastError.h"
#include "util/base/LogLevel.h"
#include "util/io/BoundedReadableUnicodeStream.h"
#include "util/io/FileHandle.h"
#include "util/io/FileStarOpen.h"
#include "util/io/ReadableUnicodeFileStar.h"
#include "util/io/ReadableUnicodeStreamLineReader.h"
#include "util/io/UnicodeEncoding.h"
#include "util/io/WritableUnicodeFileStar.h"
#include "util/regex/Regex.h"

namespace morvax {

namespace {

constexpr uint32_t kRenameAttempts = 20;
constexpr uint32_t kRenamePauseMs = 100;

// Writes a line and its LF; the stream turns the LF into CR LF where the file had those. A line
// that ends in CR (read from CR CR LF) gets a CR LF of its own, since a reader takes one CR
// before the LF as part of the line end.
bool writeLine(WritableUnicodeStream& stream, StrSegment line) {
    const bool endsInCr = line.size() > 0 && line[line.size() - 1] == '\r';
    return stream.write(line) &&
           stream.write(endsInCr ? StrSegment("\r\n", 2) : StrSegment("\n", 1));
}

// Raw lines: an LF in one is where a continuation joined the lines of an unparsed line, so the
// backslash that joined them goes back in front of it.
bool writeLines(WritableUnicodeStream& stream, const std::vector<Str>& lines) {
    for (const Str& line : lines) {
        if (line.find('\n') == Str::npos) {
            if (!writeLine(stream, line)) {
                return false;
            }
            continue;
        }
        Str raw(line);
        raw.replaceAll(StrSegment("\n", 1), StrSegment("\\\n", 2));
        if (!writeLine(stream, raw)) {
            return false;
        }
    }
    return true;
}

// Headers and entries, not comments: a line break becomes a continuation, and a final
// backslash gets a blank behind it so that it cannot join the next line. Only the LF of a
// line break is escaped: a CR before it or anywhere else is text, which a reader keeps when
// a backslash, not the LF, follows it.
Str protectLineBreaks(const Str& text) {
    Str out(text);
    out.replaceAll(StrSegment("\n", 1), StrSegment("\\\n", 2));
    if (!out.empty() && out.back() == '\\') {
        out.append(' ');
    }
    return out;
}

// "key = value", with '=', '[', backslash and NUL escaped in the key, and a comment's first
// character at its start, so that it reads back the same (an unescaped NUL would take the byte
// behind it).
Str entryLine(const Str& key, const Str& value) {
    static const char* const kKeySpecials = "(=|\\[|\\\\|\\x00)";
    Str line;
    Regex(kKeySpecials).replaceAll(ConfWhiteSpace::trim(key), "\\\\\\1", line);
    // A key that starts as a comment does ("#", ";", "*" in spec files) would read back as one.
    if (!line.empty() && (line[0] == '#' || line[0] == ';' || line[0] == '*')) {
        Str escaped("\\");
        escaped.append(line);
        line = std::move(escaped);
    }
    if (line.empty() || line.back() != ' ') {
        line.append(' ');
    }
    line.append('=');
    if (value.empty() || value[0] != ' ') {
        line.append(' ');
    }
    line.append(ConfWhiteSpace::trim(value));
    return protectLineBreaks(line);
}

Str renameStatistics(const RenameResult& result) {
    Str text;
    text.appendFormat("succeeded=%u attempts=%u elapsed_ms=%llu",
                      static_cast<unsigned>(result.succeeded), result.attempts,
                      static_cast<unsigned long long>(
                          Timeval::differenceMs(result.lastAttempt, result.firstAttempt)));
    if (!result.succeeded) {
        text.appendFormatError(result.lastError, " last_error=%u \"%m\"", result.lastError);
    }
    return text;
}

}  // namespace

IniFile::IniFile() : error_("Not yet initialized"), encodingState_(UnicodeEncoding::CRLF) {}

IniFile::IniFile(const Pathname& path) : IniFile() {
    parse(path);
}

IniFile::IniFile(FILE* file, const Pathname& path) : IniFile() {
    path_ = path;
    parseFile(file);
}

IniFile::IniFile(LineReader& reader, const Pathname& path) : IniFile() {
    path_ = path;
    parseLines(reader);
}

IniFile::~IniFile() = default;

void IniFile::fail(int32_t level, Str text) {
    error_ = std::move(text);
    iniFileLogger().log(level, error_.segment());
}

bool IniFile::parse(const Pathname& path) {
    path_ = path;
    FILE* file = openFileStar(path.c_str(), "r");
    if (file == nullptr) {
        const uint32_t saved = LastError::get();
        Str text;
        text.appendFormatError(saved, "Cannot open file=%s for parsing: %m", path.toStr().c_str());
        // A missing file is ordinary; the caller decides whether it matters.
        fail(LOG_DEBUG, std::move(text));
        return false;
    }
    parseFile(file);
    std::fclose(file);
    return isLoaded();
}

void IniFile::parseFile(FILE* file) {
    ReadableUnicodeFileStar bytes(file);
    BoundedReadableUnicodeStream bounded(bytes, MAX_FILE_BYTES, UnicodeEncoding::CRLF);
    ReadableUnicodeStreamLineReader reader(bounded);
    parseLines(reader);
    if (!bounded.exceeded()) {
        return;
    }
    // Part of a file is worse than none: a flush would cut the rest off.
    Str text;
    text.appendFormat("Cannot parse file=%s: it is larger than the limit of %llu bytes",
                      path_.toStr().c_str(), static_cast<unsigned long long>(MAX_FILE_BYTES));
    stanzas_.clear();
    headComments_.clear();
    tailComments_.clear();
    path_ = Pathname();
    fail(LOG_WARN, std::move(text));
}

void IniFile::parseLines(LineReader& reader) {
    error_.clear();
    stanzas_.clear();
    headComments_.clear();
    tailComments_.clear();

    const Str extension = ConfLineParser::extensionOf(path_);
    const bool isMeta = extension == "meta";
    ConfLineParser parser(
        reader, path_, extension == "spec" ? ConfLineParser::MODE_SPEC : ConfLineParser::MODE_CONF);
    Str line;
    Str key;
    Str value;
    ConfLineKind kind;
    while ((kind = parser.next(line, key, value)) == ConfLineKind::BLANK ||
           kind == ConfLineKind::COMMENT) {
        headComments_.push_back(line);
    }

    // Lines that are no stanza or key wait here to become the comments of the next one; so a
    // line that cannot be parsed survives a rewrite as a comment.
    std::vector<Str> pending;
    IniStanza* current = nullptr;
    for (;; kind = parser.next(line, key, value)) {
        switch (kind) {
            case ConfLineKind::BLANK:
            case ConfLineKind::COMMENT:
            case ConfLineKind::STAR_COMMENT:
            case ConfLineKind::UNPARSED:
                pending.push_back(line);
                break;
            case ConfLineKind::STANZA:
                // A repeated header continues the stanza it names; its comments go.
                current = stanzas_.emplace(key, IniStanza{pending, {}}).first;
                pending.clear();
                break;
            case ConfLineKind::KEY_VALUE:
                if (current == nullptr) {
                    if (isMeta) {
                        parser.warn(": Incorrect Stanza Format : ", line);
                        break;
                    }
                    // Keys before any header belong to [default]. The pending lines stay for
                    // the first key as well, so a rewrite repeats them.
                    current = stanzas_.emplace(Str("default"), IniStanza{pending, {}}).first;
                }
                if (!current->entries.emplace(key, IniValue{pending, value}).second) {
                    Str text(": Key used more than once in the same stanza: ");
                    text.append(key).append(": ");
                    parser.warn(text, line);
                }
                pending.clear();
                break;
            case ConfLineKind::END_OF_FILE:
                tailComments_ = std::move(pending);
                encodingState_ = reader.flags();
                return;
        }
    }
}

void IniFile::removeStanza(const Str& name) {
    auto first = stanzas_.begin();
    if (first != stanzas_.end() && first->first == name) {
        auto second = std::next(first);
        if (second != stanzas_.end()) {
            std::vector<Str>& comments = second->second.comments;
            std::erase_if(comments, [](const Str& line) { return line.empty(); });
        }
    }
    stanzas_.erase(name);
}

const Str* IniFile::value(const Str& stanzaName, const Str& key) const {
    const IniStanza* found = stanzas_.find(stanzaName);
    if (found == nullptr) {
        return nullptr;
    }
    const IniValue* entry = found->entries.find(key);
    return entry != nullptr ? &entry->value : nullptr;
}

bool IniFile::writeTo(WritableUnicodeStream& stream) const {
    if ((encodingState_ & UnicodeEncoding::MARK) != 0 && !stream.writeMark()) {
        return false;
    }
    if (!writeLines(stream, headComments_)) {
        return false;
    }
    bool firstStanza = true;
    for (const auto& [name, stanza] : stanzas_) {
        if (!writeLines(stream, stanza.comments)) {
            return false;
        }
        if (!firstStanza && stanza.comments.empty() && !writeLine(stream, StrSegment())) {
            return false;
        }
        firstStanza = false;
        Str header("[");
        header.append(name).append("]");
        if (!writeLine(stream, protectLineBreaks(header))) {
            return false;
        }
        for (const auto& [key, entry] : stanza.entries) {
            if (!writeLines(stream, entry.comments) ||
                !writeLine(stream, entryLine(key, entry.value))) {
                return false;
            }
        }
    }
    return writeLines(stream, tailComments_);
}

int IniFile::flush() {
    if (path_.empty()) {
        fail(LOG_ERROR, Str("No destination set for IniFile flush"));
        return 0;
    }
    const Str destination = path_.toStr();
    const Pathname directory = path_.dirName();
    if (!directory.makeDirectories()) {
        const uint32_t saved = LastError::get();
        Str text;
        text.appendFormatError(saved, "Could not create directory %s while flushing to %s: %m",
                               directory.toStr().c_str(), destination.c_str());
        fail(LOG_ERROR, std::move(text));
        return 0;
    }

    // A name of its own beside the destination, created exclusively: no other writer, in this
    // process or another, can share it, and the rename stays on one file system.
    Pathname temporary;
    FILE* file = nullptr;
    if (path_.makeTempSibling(temporary) == 1) {
        file = openFileStar(temporary.c_str(), "w");
    }
    if (file == nullptr) {
        const uint32_t saved = LastError::get();
        Str text;
        text.appendFormatError(saved, "Cannot open tmpfile=%s: %m",
                               (temporary.empty() ? directory : temporary).toStr().c_str());
        if (!temporary.empty()) {
            temporary.removeFile();
        }
        fail(LOG_ERROR, std::move(text));
        return 0;
    }
    const Str temporaryName = temporary.toStr();

    uint32_t state = encodingState_;
    const uint32_t encoding = UnicodeEncoding::encodingOf(state);
    if (encoding == UnicodeEncoding::UNKNOWN || encoding == UnicodeEncoding::EMPTY) {
        state = (state & ~UnicodeEncoding::ENCODING_MASK) | UnicodeEncoding::UTF8;
    }
    bool written;
    {
        WritableUnicodeFileStar stream(file, false, state);
        // The stream remembers a failed write; its flush reports it.
        written = writeTo(stream);
        written = stream.flush() && written;
    }
    written = std::fclose(file) == 0 && written;
    if (written) {
        // stdio cannot force data to the disk; a handle of our own on the same file can, so
        // that the rename never exposes a file whose data is not there yet.
        FileHandle durable = temporary.openForAppend();
        written = durable && durable.sync() && durable.close();
    }
    if (!written) {
        const uint32_t saved = LastError::get();
        Str text;
        text.appendFormatError(saved, "Cannot flush tmpfile=%s: %m", temporaryName.c_str());
        temporary.removeFile();
        fail(LOG_ERROR, std::move(text));
        return 0;
    }

    const RenameResult result =
        temporary.renameWithRetry(path_, kRenameAttempts, kRenamePauseMs, true);
    Str text;
    text.append(result.succeeded ? "Renamed " : "Cannot rename ")
        .append(temporaryName)
        .append(" to ")
        .append(destination)
        .append(": ")
        .append(renameStatistics(result));
    if (!result.succeeded) {
        temporary.removeFile();
        fail(LOG_ERROR, std::move(text));
        return 0;
    }
    iniFileLogger().log(result.attempts == 1 ? LOG_INFO : LOG_WARN, text.segment());
    return 1;
}

}  // namespace morvax
