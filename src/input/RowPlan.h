#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "util/base/Str.h"

namespace morvax {

// How the objects of one shape (one list of property names) become the lines of an event,
// worked out once: which properties a record of them has, the order of the lines (name order by
// UTF-16 code units, the fixed properties behind, Message last), and each line's "name=" in
// UTF-8. Objects of that shape are then written by position, without a record.
class RowPlan {
  public:
    // What the processor adds to and removes from every record, the same for all its shapes.
    struct Options {
        // Names of the fixed properties it may set; at most kMaxFixed.
        std::vector<WStr> fixedNames;
        // Properties dropped from every record.
        std::vector<WStr> excluded;
    };
    static constexpr size_t kMaxFixed = 8;
    // Bytes of a line's head (see Line::head).
    static constexpr size_t kHead = 16;
    static constexpr uint32_t kNoColumn = UINT32_MAX;
    // The index of a column whose value is the event's class, not a property of the object.
    static constexpr uint32_t kEventClass = UINT32_MAX;

    // One property of the record.
    struct Column {
        WStr name;
        // Position in the object's names, or kEventClass.
        uint32_t index;
        // Another name of the object differs from this one only in case: the provider's lookup by
        // name decides which value it gets, so it is read by name.
        bool byName;
    };
    // One line of the event: a column of the record or a fixed property.
    struct Line {
        bool fixed;
        // The column, or the fixed property's position in Options::fixedNames.
        uint32_t slot;
        // Fixed properties (bits by position) that hide this column when they are set.
        uint32_t hiddenBy;
        // The column's Column::index and Column::byName, at hand where the line is read.
        uint32_t index;
        bool byName;
        // "name=", cut at a NUL in the name as a C string would be.
        std::string prefix;
        // The prefix again, zero-filled, when it fits: copied whole, without a length to test.
        char head[kHead];
    };

    // `names` as the object gives them; `eventClass` adds the column EventClass (a notification
    // whose instance is written) unless the object has one.
    RowPlan(const std::vector<WStr>& names, bool eventClass, const Options& options);

    const std::vector<WStr>& names() const { return names_; }
    bool eventClass() const { return eventClass_; }
    const std::vector<Column>& columns() const { return columns_; }
    const std::vector<Line>& lines() const { return lines_; }
    // The lines in their three runs: columns, fixed properties, the columns behind those.
    std::span<const Line> linesBeforeFixed() const { return {lines_.data(), firstFixed_}; }
    std::span<const Line> fixedLines() const {
        return {lines_.data() + firstFixed_, endFixed_ - firstFixed_};
    }
    std::span<const Line> linesBehindFixed() const {
        return {lines_.data() + endFixed_, lines_.size() - endFixed_};
    }
    // The fixed properties that hide some column, as bits, and the lines of those columns.
    uint32_t hidingFixed() const { return hidingFixed_; }
    const std::vector<uint32_t>& hidableLines() const { return hidableLines_; }
    // The bytes of all prefixes and line ends together: with the values', an event's body at
    // most.
    size_t lineBytes() const { return lineBytes_; }
    // The column named exactly `name`, or kNoColumn.
    uint32_t find(std::u16string_view name) const;

  private:
    std::vector<WStr> names_;
    bool eventClass_;
    std::vector<Column> columns_;
    std::vector<Line> lines_;
    size_t firstFixed_ = 0;
    size_t endFixed_ = 0;
    uint32_t hidingFixed_ = 0;
    std::vector<uint32_t> hidableLines_;
    size_t lineBytes_ = 0;
};

}  // namespace morvax
