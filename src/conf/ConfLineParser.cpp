#include "conf/ConfLineParser.h"

#include <cstring>
#include <utility>

#include "conf/ConfWhiteSpace.h"
#include "conf/IniFileLogger.h"

namespace morvax {

ConfLineParser::ConfLineParser(LineReader& reader, const Pathname& path, uint32_t mode)
    : reader_(reader), pathText_(path.toStr()), extension_(extensionOf(path)), mode_(mode) {}

Str ConfLineParser::extensionOf(const Pathname& path) {
    const Str base = Str::fromWide(path.baseName());
    const size_t dot = base.rfind('.');
    return dot == Str::npos ? Str() : Str(StrSegment(base.data() + dot + 1, base.size() - dot - 1));
}

Str ConfLineParser::location() const {
    Str text(pathText_);
    text.appendFormat(", line %u", lineNumber_);
    return text;
}

void ConfLineParser::warn(StrSegment what, StrSegment line) {
    Str message = location();
    message.append(what).append(line);
    iniFileLogger().warn(message.segment());
}

ConfLineKind ConfLineParser::next(Str& line, Str& key, Str& value, Str* diagnostic) {
    if (!reader_.readLine(line)) {
        return ConfLineKind::END_OF_FILE;
    }
    ++lineNumber_;
    const size_t first = ConfWhiteSpace::skipLeading(line);
    if (first == line.size()) {
        return ConfLineKind::BLANK;
    }
    const char lead = line[first];
    // Comments are known by their first character alone, so they never continue.
    if (lead == ';' || lead == '#') {
        return ConfLineKind::COMMENT;
    }
    if (mode_ == MODE_SPEC && lead == '*') {
        return ConfLineKind::STAR_COMMENT;
    }
    joinContinuations(line);
    if (line.size() > MAX_LINE_BYTES) {
        Str message = location();
        message.appendFormat(
            ": Line of %zu bytes is longer than the limit of %zu and is not parsed", line.size(),
            MAX_LINE_BYTES);
        iniFileLogger().warn(message.segment());
        if (diagnostic) {
            *diagnostic = std::move(message);
        }
        return ConfLineKind::UNPARSED;
    }
    if (lead == '[') {
        return readStanza(line, first, key);
    }
    return readKeyValue(line, key, value, diagnostic);
}

void ConfLineParser::joinContinuations(Str& line) {
    while (!line.empty() && line.back() == '\\') {
        line[line.size() - 1] = '\n';
        if (!reader_.readLine(continuation_)) {
            return;
        }
        ++lineNumber_;
        line.append(continuation_);
    }
}

ConfLineKind ConfLineParser::readStanza(const Str& line, size_t bracket, Str& key) {
    // The last ']' ends the name, so a name may itself hold brackets.
    const size_t close = line.rfind(']');
    if (close == Str::npos || close < bracket) {
        warn(": Stanza header is missing terminator: ", line);
        key = StrSegment(line.data() + bracket + 1, line.size() - bracket - 1);
    } else {
        key = StrSegment(line.data() + bracket + 1, close - bracket - 1);
    }
    return ConfLineKind::STANZA;
}

ConfLineKind ConfLineParser::readKeyValue(const Str& line, Str& key, Str& value, Str* diagnostic) {
    // A backslash takes the byte behind it into the key, even '=' or another backslash. A NUL
    // goes, and the byte behind it is taken unexamined.
    Str scanned;
    scanned.reserve(line.size());
    const size_t n = line.size();
    size_t i = 0;
    while (i < n && line[i] != '=') {
        const char c = line[i];
        if (c == '\\' || c == '\0') {
            if (i + 1 == n) {
                if (c == '\\') {
                    warn(": Cannot end on an escape character: ", line);
                    return unparsed(line, diagnostic);
                }
                ++i;
                continue;
            }
            scanned.append(line[i + 1]);
            i += 2;
            continue;
        }
        scanned.append(c);
        ++i;
    }
    if (i >= n) {
        return unparsed(line, diagnostic);
    }
    key = ConfWhiteSpace::trim(scanned);

    StrSegment raw(line.data() + i + 1, n - i - 1);
    if (std::memchr(raw.data(), '\0', raw.size()) == nullptr) {
        value = ConfWhiteSpace::trim(raw);
        return ConfLineKind::KEY_VALUE;
    }
    warn(":  Found null character: ", line);
    Str cleaned;
    cleaned.reserve(raw.size());
    for (char c : raw) {
        if (c != '\0') {
            cleaned.append(c);
        }
    }
    value = ConfWhiteSpace::trim(cleaned);
    return ConfLineKind::KEY_VALUE;
}

ConfLineKind ConfLineParser::unparsed(const Str& line, Str* diagnostic) {
    // A .spec file describes settings in free text; its lines are not expected to parse.
    if (extension_ == "spec") {
        return ConfLineKind::UNPARSED;
    }
    Str message = location();
    message.append(": Cannot parse into key-value pair: ").append(line).append("\n");
    iniFileLogger().warn(message.segment());
    if (diagnostic) {
        *diagnostic = std::move(message);
    }
    return ConfLineKind::UNPARSED;
}

}  // namespace morvax
