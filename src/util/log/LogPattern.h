#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/time/TimeFormat.h"
#include "util/time/Timeval.h"

namespace morvax {

// A compiled layout: "%d{%H:%M:%S} %-5p %c: %m%n" and the like. Immutable after construction,
// so appenders share one freely.
class LocalStructTmHires;

class LogPattern {
  public:
    enum Kind : uint32_t {
        LITERAL = 0,  // text, and %n (CR LF)
        MESSAGE,      // %m
        CHANNEL,      // %c: the Logger's name
        PRIORITY,     // %p: the level's name
        THREAD,       // %t: the thread's name
        THREAD_ID,    // %T
        ELAPSED_MS,   // %r: milliseconds since the log system's time origin, rounded up
        ELAPSED_S,    // %R: the same in whole seconds
        CLOCK,        // %u: the process's clock()
        DATE,         // %d{format}: the local time
    };
    static constexpr uint32_t NO_PRECISION = ~uint32_t{0};
    // Fill value of a left-justified atom, padded on the right with blanks.
    static constexpr char FILL_RIGHT = 0;

    struct Atom {
        Kind kind = LITERAL;
        // LITERAL: the text.
        Str text;
        // DATE: the compiled format.
        TimeFormat date;
        uint32_t width = 0;
        uint32_t precision = NO_PRECISION;
        char fill = ' ';
    };

    // What one line is made of.
    struct Fields {
        Timeval time;
        int32_t level = 0;
        StrSegment loggerName;
        // Already escaped.
        StrSegment message;
        // The Logger's truncatesMessages().
        bool truncates = true;
        uint32_t maxMessageSize = 16384;
        // 1 plain, 2 JSON.
        uint32_t serialization = 1;
        Timeval timeOrigin;
        // When null, the calling thread's name and id are used.
        const Str* threadName = nullptr;
        uint32_t threadId = 0;
    };

    // Compiling never fails: what cannot be understood is dropped.
    explicit LogPattern(StrSegment text);

    const Str& text() const { return text_; }
    const std::vector<Atom>& atoms() const { return atoms_; }

    // Appends the line to `target`.
    void render(const Fields& fields, Str& target) const;

    // The two fixed layouts, shared.
    static const std::shared_ptr<const LogPattern>& basicLayout();
    static const std::shared_ptr<const LogPattern>& simpleLayout();
    // "%m%n", the root appender's.
    static const std::shared_ptr<const LogPattern>& messageLayout();

    // Appends `text` shortened to `size` bytes: head, " ...{skipping N bytes}... ", tail.
    // Text that fits is appended whole.
    static void appendSkipped(Str& target, StrSegment text, size_t size);

  private:
    void compile();
    // The text of a non-literal atom other than the message and the date.
    void appendValue(const Atom& atom, const Fields& fields, Str& target) const;
    // The local time is computed once per line, on the first date atom.
    void appendDate(const Atom& atom, const Fields& fields, Str& target,
                    LocalStructTmHires& localTime, bool& localTimeReady) const;
    void appendMessage(const Atom& atom, const Fields& fields, Str& target) const;
    void renderPlain(const Fields& fields, Str& target) const;
    // Width and precision of an atom whose text begins at `start`.
    static void applyWidth(const Atom& atom, Str& target, size_t start, bool cut);
    void renderJson(const Fields& fields, Str& target) const;

    Str text_;
    std::vector<Atom> atoms_;
};

}  // namespace morvax
