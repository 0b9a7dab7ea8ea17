#include "util/log/LogConfParser.h"

#include "util/base/Ascii.h"
#include "util/io/LineReader.h"
#include "util/io/ReadableUnicodeMemoryStream.h"

namespace morvax {

namespace {

constexpr char kPrefix[] = "log4cpp.";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;

StrSegment trimBlanks(StrSegment text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(text[end - 1])) {
        --end;
    }
    return StrSegment(text.data() + begin, end - begin);
}

size_t skipBlanks(StrSegment text, size_t at) {
    while (at < text.size() && isBlank(text[at])) {
        ++at;
    }
    return at;
}

// The end of a name: the first `.`, blank, tab or `=` at or after `at`.
size_t nameEnd(StrSegment text, size_t at) {
    while (at < text.size() && text[at] != '.' && text[at] != '=' && !isBlank(text[at])) {
        ++at;
    }
    return at;
}

StrSegment slice(StrSegment text, size_t begin, size_t end) {
    return StrSegment(text.data() + begin, end - begin);
}

}  // namespace

LogConfParser::LogConfParser(const char* section, StrSegment fileName)
    : section_(section != nullptr ? section : ""),
      hasSection_(section != nullptr),
      fileName_(fileName) {
    section_.toLower();
}

void LogConfParser::parse(LineReader& reader) {
    Str line;
    while (reader.readLine(line)) {
        addLine(line);
    }
    finish();
}

void LogConfParser::parse(StrSegment text) {
    ReadableUnicodeMemoryStream stream(text);
    Str line;
    while (stream.readLine(line)) {
        addLine(line);
    }
    finish();
}

void LogConfParser::addLine(StrSegment line) {
    ++lineNumber_;
    Str logical;
    uint32_t logicalLine = lineNumber_;
    if (inComment_) {
        logical.swap(beforeComment_);
        logicalLine = logicalStart_;
    }
    size_t at = 0;
    while (at < line.size()) {
        if (inComment_) {
            size_t end = Str::find(line.data(), line.size(), "-->", at, 3);
            if (end == Str::npos) {
                break;
            }
            inComment_ = false;
            at = end + 3;
            continue;
        }
        size_t hash = Str::find(line.data(), line.size(), "#", at, 1);
        size_t open = Str::find(line.data(), line.size(), "<!--", at, 4);
        if (hash != Str::npos && (open == Str::npos || hash < open)) {
            logical.append(line.data() + at, hash - at);
            break;
        }
        if (open == Str::npos) {
            logical.append(line.data() + at, line.size() - at);
            break;
        }
        logical.append(line.data() + at, open - at);
        inComment_ = true;
        commentLine_ = lineNumber_;
        at = open + 4;
    }
    if (inComment_) {
        // The text before the comment waits for the text behind its end.
        beforeComment_.swap(logical);
        logicalStart_ = logicalLine;
        return;
    }
    addLogicalLine(logical, logicalLine);
}

void LogConfParser::finish() {
    if (inComment_) {
        addError(LogConfError::UNTERMINATED_COMMENT, commentLine_, StrSegment());
        inComment_ = false;
        Str before;
        before.swap(beforeComment_);
        addLogicalLine(before, logicalStart_);
    }
}

void LogConfParser::addError(int32_t kind, uint32_t lineNumber, StrSegment text) {
    LogConfError error;
    error.kind = kind;
    error.fileName = fileName_;
    error.lineNumber = lineNumber;
    error.text = text;
    errors_.push_back(std::move(error));
}

void LogConfParser::addLogicalLine(StrSegment raw, uint32_t lineNumber) {
    StrSegment line = trimBlanks(raw);
    if (line.empty()) {
        return;
    }
    if (line[0] == '[') {
        sectionSeen_ = true;
        if (hasSection_) {
            size_t end = line.size();
            while (end > 1 && (isBlank(line[end - 1]) || line[end - 1] == ']')) {
                --end;
            }
            Str name(slice(line, 1, end));
            name.toLower();
            inWantedSection_ = name == section_;
        }
        return;
    }
    if (hasSection_ ? !inWantedSection_ : sectionSeen_) {
        return;
    }
    LogConfEntry entry;
    if (!parseEntry(line, entry)) {
        addError(LogConfError::PARSE, lineNumber, line);
        return;
    }
    entry.line = line;
    entry.lineNumber = lineNumber;
    entries_.push_back(std::move(entry));
}

bool LogConfParser::parseEntry(StrSegment line, LogConfEntry& entry) {
    if (line.size() >= kPrefixLength && line.view().substr(0, kPrefixLength) == kPrefix) {
        line = slice(line, kPrefixLength, line.size());
    }
    size_t end = nameEnd(line, 0);
    StrSegment first = slice(line, 0, end);
    size_t equals = line.view().find('=', end);
    if (equals == std::string_view::npos) {
        return false;
    }
    StrSegment value = trimBlanks(slice(line, equals + 1, line.size()));

    if (first == StrSegment("rootCategory")) {
        if (skipBlanks(line, end) != equals) {
            return false;
        }
        entry.kind = LogConfEntry::ROOT_CATEGORY;
        entry.value = value;
        return true;
    }
    if (first == StrSegment("category")) {
        if (end >= line.size() || line[end] != '.') {
            return false;
        }
        StrSegment name = trimBlanks(slice(line, end + 1, equals));
        if (name.empty()) {
            return false;
        }
        entry.kind = LogConfEntry::CATEGORY;
        entry.name = name;
        entry.value = value;
        return true;
    }
    if (first == StrSegment("appender")) {
        if (end >= line.size() || line[end] != '.') {
            return false;
        }
        size_t nameBegin = end + 1;
        size_t nameStop = nameEnd(line, nameBegin);
        if (nameStop == nameBegin) {
            return false;
        }
        entry.name = slice(line, nameBegin, nameStop);
        entry.value = value;
        size_t after = skipBlanks(line, nameStop);
        if (after == equals) {
            entry.kind = LogConfEntry::APPENDER;
            return true;
        }
        if (line[after] != '.') {
            return false;
        }
        StrSegment key = trimBlanks(slice(line, after + 1, equals));
        if (key.empty()) {
            return false;
        }
        entry.kind = LogConfEntry::APPENDER_KEY;
        entry.key = key;
        return true;
    }
    return false;
}

}  // namespace morvax
