#pragma once

#include <cstdint>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

class LineReader;

// One entry of a log configuration.
struct LogConfEntry {
    enum Kind : uint32_t {
        ROOT_CATEGORY = 0,  // rootCategory = list
        CATEGORY,           // category.<name> = list
        APPENDER_KEY,       // appender.<name>.<key> = value
        APPENDER,           // appender.<name> = anything: creates it
    };

    Kind kind = ROOT_CATEGORY;
    Str name;
    Str key;
    Str value;
    // The line as read, without comments and surrounding blanks: what an error shows.
    Str line;
    uint32_t lineNumber = 0;
};

// A fault found in a configuration, reported once the load is done.
struct LogConfError {
    enum Kind : int32_t { PARSE = 0, UNTERMINATED_COMMENT = 1 };

    int32_t kind = PARSE;
    Str fileName;
    uint32_t lineNumber = 0;
    Str text;
};

// Turns the lines of a log configuration into entries. Pure: it touches nothing but its
// results, whatever bytes it is given.
//
// `#` starts a comment to the end of the line; "<!--" starts one that may span lines up to
// "-->", the text on both sides being joined into one line. Lines are trimmed of blanks and
// tabs. A line beginning with `[` opens a section: without a section to look for, everything
// from the first section on is ignored; with one, only the lines of sections of that name (in
// any case) count. A "log4cpp." prefix is dropped from keys.
class LogConfParser {
  public:
    // `section` may be null; `fileName` is only copied into the errors.
    LogConfParser(const char* section, StrSegment fileName);

    // Feeds the next physical line, without its line end.
    void addLine(StrSegment line);
    // Ends the input: a comment still open is an error.
    void finish();

    const std::vector<LogConfEntry>& entries() const { return entries_; }
    std::vector<LogConfEntry>& entries() { return entries_; }
    const std::vector<LogConfError>& errors() const { return errors_; }
    std::vector<LogConfError>& errors() { return errors_; }

    // Reads every line of `reader` and finishes.
    void parse(LineReader& reader);
    // The same for text in memory, in any encoding the text streams detect.
    void parse(StrSegment text);

    // Splits one logical line (trimmed, prefix and comments gone) into `entry`; false when it is
    // not an entry of any known form.
    static bool parseEntry(StrSegment line, LogConfEntry& entry);

  private:
    void addLogicalLine(StrSegment line, uint32_t lineNumber);
    void addError(int32_t kind, uint32_t lineNumber, StrSegment text);

    Str section_;
    bool hasSection_;
    Str fileName_;
    uint32_t lineNumber_ = 0;
    // Inside "<!-- ... -->": the line where it began, and the text before it with the line
    // where that began.
    bool inComment_ = false;
    uint32_t commentLine_ = 0;
    Str beforeComment_;
    uint32_t logicalStart_ = 0;
    // The section lines seen so far allow the lines that follow.
    bool sectionSeen_ = false;
    bool inWantedSection_ = false;
    std::vector<LogConfEntry> entries_;
    std::vector<LogConfError> errors_;
};

}  // namespace morvax
