#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "input/EventBuffer.h"
#include "input/RowPlan.h"
#include "wmi/Wmi.h"

namespace morvax {

// The objects of one call of Next as the lines of their rows, in UTF-8, before any of them is
// written: a failure while reading them leaves nothing of the batch written. A row's lines are
// rendered as the event will carry them ("name=value" and a line end, in the plan's order), so
// that a row whose values need no second look goes out in a few copies.
class RowBatch {
  public:
    // A value's bytes in full; the line writer cuts them at their first NUL.
    struct Value {
        uint32_t offset = kAbsent;
        uint32_t length = 0;
        bool present() const { return offset != kAbsent; }
    };

    RowBatch() = default;
    RowBatch(const RowBatch&) = delete;
    RowBatch& operator=(const RowBatch&) = delete;

    void clear();
    // A row of `plan`, whose column lines follow in the plan's order, each exactly once.
    void beginRow(const std::shared_ptr<const RowPlan>& plan);
    // The line of `value` by the rules of an event; may take its text's storage. Inline, as it
    // runs for every value of every event.
    void addValue(const RowPlan::Line& line, wmi::Variant& value);
    // A line with an empty value: the provider had none to give.
    void addEmpty(const RowPlan::Line& line) {
        const size_t start = writePrefix(line);
        bytes_.append('\n');
        setValue(line.slot, start, 0);
    }
    // No line at all: the record has no such property.
    void addAbsent(const RowPlan::Line& line) { values_[rowValues_ + line.slot] = Value(); }
    // Where the fixed properties go in: the lines that follow are those behind them.
    void markFixedLines() { rows_.back().fixedByte = static_cast<uint32_t>(bytes_.size()); }

    size_t size() const { return rows_.size(); }
    bool empty() const { return rows_.empty(); }
    const RowPlan& plan(size_t row) const { return *plans_[rows_[row].plan]; }
    const std::shared_ptr<const RowPlan>& sharedPlan(size_t row) const {
        return plans_[rows_[row].plan];
    }
    const Value& value(size_t row, uint32_t column) const {
        return values_[rows_[row].firstValue + column];
    }
    // The whole text of a value.
    std::string_view text(const Value& value) const {
        return std::string_view(bytes_.data() + value.offset, value.length);
    }
    std::string_view text(size_t row, uint32_t column) const { return text(value(row, column)); }
    // The lines of a row, in order: those before the fixed properties, then those behind them.
    std::string_view linesBefore(size_t row) const {
        return std::string_view(bytes_.data() + rows_[row].firstByte,
                                fixedByte(row) - rows_[row].firstByte);
    }
    std::string_view linesBehind(size_t row) const {
        return std::string_view(bytes_.data() + fixedByte(row), endByte(row) - fixedByte(row));
    }
    std::string_view rowText(size_t row) const {
        return std::string_view(bytes_.data() + rows_[row].firstByte,
                                endByte(row) - rows_[row].firstByte);
    }
    // Whether the lines hold every value whole: none is cut at a NUL.
    bool whole(size_t row) const { return rows_[row].whole; }
    // The offset in rowText of the line of `value`, written by `line`, and its length.
    size_t lineOffset(size_t row, const RowPlan::Line& line, const Value& value) const {
        return value.offset - line.prefix.size() - rows_[row].firstByte;
    }
    static size_t lineLength(const RowPlan::Line& line, const Value& value) {
        return line.prefix.size() + value.length + 1;
    }

  private:
    static constexpr uint32_t kAbsent = UINT32_MAX;
    static constexpr uint32_t kNoByte = UINT32_MAX;
    struct Row {
        uint32_t plan;
        uint32_t firstValue;
        uint32_t firstByte;
        uint32_t fixedByte;
        bool whole;
    };
    size_t endByte(size_t row) const {
        return row + 1 < rows_.size() ? rows_[row + 1].firstByte : bytes_.size();
    }
    size_t fixedByte(size_t row) const {
        return rows_[row].fixedByte != kNoByte ? rows_[row].fixedByte : endByte(row);
    }
    // Copies the line's "name=" to `out`, which has room for kHead bytes beyond it.
    static void copyPrefix(char* out, const RowPlan::Line& line) {
        if (line.prefix.size() <= RowPlan::kHead) {
            std::memcpy(out, line.head, RowPlan::kHead);
        } else {
            std::memcpy(out, line.prefix.data(), line.prefix.size());
        }
    }
    // Writes the line's "name=" and returns where its value begins.
    size_t writePrefix(const RowPlan::Line& line) {
        const size_t length = line.prefix.size();
        char* out = bytes_.reserveTail(length + RowPlan::kHead);
        copyPrefix(out, line);
        bytes_.commitTail(out + length);
        return bytes_.size();
    }
    // As VariantChangeType, where a failure is not expected and so not survivable either.
    static void changeTypeOrThrow(wmi::Variant& value, uint16_t vt);
    void addUnknown(const RowPlan::Line& line, uint16_t vt);
    template <typename Number>
    void addNumber(const RowPlan::Line& line, Number number);
    // NULL, True or False.
    void addWord(const RowPlan::Line& line, std::string_view word);
    void setValue(uint32_t slot, size_t start, size_t length) {
        values_[rowValues_ + slot] =
            Value{static_cast<uint32_t>(start), static_cast<uint32_t>(length)};
    }

    EventBuffer bytes_;
    // Room for the columns of the rows begun; rowValues_ is where the last row's begin.
    std::unique_ptr<Value[]> values_;
    size_t capacity_ = 0;
    size_t next_ = 0;
    size_t rowValues_ = 0;
    std::vector<Row> rows_;
    // The plans of this batch's rows: more than one when the shape changed within the batch.
    std::vector<std::shared_ptr<const RowPlan>> plans_;
};

// Only the types that WMI uses for numbers, strings and flags have a text of their own; every
// other type, arrays included, is named by its number. Numbers are printed as the platform's
// conversion to VT_INT or VT_UINT gives them; within range that is the number itself, so the
// conversion is only asked for out of range.
[[gnu::always_inline]] inline void RowBatch::addValue(const RowPlan::Line& line,
                                                      wmi::Variant& value) {
    switch (value.vt) {
        case wmi::VT_BSTR: {
            const size_t start = writePrefix(line);
            const size_t nul = bytes_.appendWide(value.str);
            const size_t length = bytes_.size() - start;
            bytes_.append('\n');
            if (nul != EventBuffer::NO_NUL) {
                rows_.back().whole = false;
            }
            setValue(line.slot, start, length);
            return;
        }
        case wmi::VT_I2:
        case wmi::VT_I4:
        case wmi::VT_I1:
            if (value.i < INT32_MIN || value.i > INT32_MAX) {
                changeTypeOrThrow(value, wmi::VT_INT);
            }
            addNumber(line, static_cast<int32_t>(value.i));
            return;
        case wmi::VT_INT:
            addNumber(line, static_cast<int32_t>(value.i));
            return;
        case wmi::VT_UI1:
        case wmi::VT_UI2:
        case wmi::VT_UI4:
            if (value.u > UINT32_MAX) {
                changeTypeOrThrow(value, wmi::VT_UINT);
            }
            addNumber(line, static_cast<uint32_t>(value.u));
            return;
        case wmi::VT_UINT:
            addNumber(line, static_cast<uint32_t>(value.u));
            return;
        case wmi::VT_I8:
            addNumber(line, static_cast<long long>(value.i));
            return;
        case wmi::VT_UI8:
            addNumber(line, static_cast<unsigned long long>(value.u));
            return;
        case wmi::VT_NULL:
            addWord(line, "NULL");
            return;
        case wmi::VT_BOOL:
            addWord(line, value.b ? std::string_view("True") : std::string_view("False"));
            return;
        default:
            addUnknown(line, value.vt);
            return;
    }
}

template <typename Number>
[[gnu::always_inline]] inline void RowBatch::addNumber(const RowPlan::Line& line, Number number) {
    constexpr size_t kNumberRoom = 24;
    const size_t length = line.prefix.size();
    char* const base = bytes_.reserveTail(length + RowPlan::kHead + kNumberRoom + 1);
    copyPrefix(base, line);
    char* const first = base + length;
    char* out = std::to_chars(first, first + kNumberRoom, number).ptr;
    const size_t valueLength = static_cast<size_t>(out - first);
    *out++ = '\n';
    const size_t start = bytes_.size() + length;
    bytes_.commitTail(out);
    setValue(line.slot, start, valueLength);
}

inline void RowBatch::addWord(const RowPlan::Line& line, std::string_view word) {
    const size_t length = line.prefix.size();
    char* const base = bytes_.reserveTail(length + RowPlan::kHead + 8);
    copyPrefix(base, line);
    std::memcpy(base + length, word.data(), word.size());
    base[length + word.size()] = '\n';
    const size_t start = bytes_.size() + length;
    bytes_.commitTail(base + length + word.size() + 1);
    setValue(line.slot, start, word.size());
}

}  // namespace morvax
