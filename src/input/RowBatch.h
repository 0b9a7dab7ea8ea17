#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "input/EventBuffer.h"
#include "input/RowPlan.h"
#include "wmi/Wmi.h"

namespace morvax {

// The objects of one call of Next as the values of their rows, in UTF-8, before any of them is
// written: a failure while reading them leaves nothing of the batch written.
class RowBatch {
  public:
    // A value's bytes in full, and where the line writer cuts it: at its first NUL.
    struct Value {
        uint32_t offset = 0;
        uint32_t length = 0;
        uint32_t cut = 0;
        bool present = false;
    };

    RowBatch() = default;
    RowBatch(const RowBatch&) = delete;
    RowBatch& operator=(const RowBatch&) = delete;

    void clear();
    // A row of `plan`, whose values follow in the order of its columns.
    void beginRow(const std::shared_ptr<const RowPlan>& plan);
    // The text of `value` by the rules of an event; may take its text's storage. Inline, as it
    // runs for every value of every event.
    void addValue(wmi::Variant& value);
    void addText(std::string_view text);
    void addEmpty() { values_[next_++] = Value{static_cast<uint32_t>(bytes_.size()), 0, 0, true}; }
    void addAbsent() { values_[next_++] = Value(); }

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
    // The bytes of all values of a row together, one after another.
    std::string_view rowText(size_t row) const {
        const size_t end = row + 1 < rows_.size() ? rows_[row + 1].firstByte : bytes_.size();
        return std::string_view(bytes_.data() + rows_[row].firstByte, end - rows_[row].firstByte);
    }

  private:
    struct Row {
        uint32_t plan;
        uint32_t firstValue;
        uint32_t firstByte;
    };
    void addNumberText(const char* text, size_t length) {
        const size_t start = bytes_.size();
        char* out = bytes_.reserveTail(length);
        bytes_.commitTail(EventBuffer::copy(out, text, length));
        setValue(start, length, length);
    }
    // As VariantChangeType, where a failure is not expected and so not survivable either.
    static void changeTypeOrThrow(wmi::Variant& value, uint16_t vt);
    void addUnknown(uint16_t vt);
    void setValue(size_t start, size_t length, size_t cut) {
        values_[next_++] = Value{static_cast<uint32_t>(start), static_cast<uint32_t>(length),
                                 static_cast<uint32_t>(cut), true};
    }

    EventBuffer bytes_;
    // Room for the columns of the rows begun; next_ is the next value to set.
    std::unique_ptr<Value[]> values_;
    size_t capacity_ = 0;
    size_t next_ = 0;
    std::vector<Row> rows_;
    // The plans of this batch's rows: more than one when the shape changed within the batch.
    std::vector<std::shared_ptr<const RowPlan>> plans_;
};

// Only the types that WMI uses for numbers, strings and flags have a text of their own; every
// other type, arrays included, is named by its number. Numbers are printed as the platform's
// conversion to VT_INT or VT_UINT gives them; within range that is the number itself, so the
// conversion is only asked for out of range.
inline void RowBatch::addValue(wmi::Variant& value) {
    constexpr size_t kNumberRoom = 24;
    const size_t start = bytes_.size();
    char* out;
    switch (value.vt) {
        case wmi::VT_BSTR: {
            const size_t nul = bytes_.appendWide(value.str);
            const size_t length = bytes_.size() - start;
            setValue(start, length, nul == EventBuffer::NO_NUL ? length : nul - start);
            return;
        }
        case wmi::VT_NULL:
            addNumberText("NULL", 4);
            return;
        case wmi::VT_BOOL:
            if (value.b) {
                addNumberText("True", 4);
            } else {
                addNumberText("False", 5);
            }
            return;
        case wmi::VT_I2:
        case wmi::VT_I4:
        case wmi::VT_I1:
        case wmi::VT_INT:
            if (value.vt != wmi::VT_INT && (value.i < INT32_MIN || value.i > INT32_MAX)) {
                changeTypeOrThrow(value, wmi::VT_INT);
            }
            out = bytes_.reserveTail(kNumberRoom);
            out = std::to_chars(out, out + kNumberRoom, static_cast<int32_t>(value.i)).ptr;
            break;
        case wmi::VT_UI1:
        case wmi::VT_UI2:
        case wmi::VT_UI4:
        case wmi::VT_UINT:
            if (value.vt != wmi::VT_UINT && value.u > UINT32_MAX) {
                changeTypeOrThrow(value, wmi::VT_UINT);
            }
            out = bytes_.reserveTail(kNumberRoom);
            out = std::to_chars(out, out + kNumberRoom, static_cast<uint32_t>(value.u)).ptr;
            break;
        case wmi::VT_I8:
            out = bytes_.reserveTail(kNumberRoom);
            out = std::to_chars(out, out + kNumberRoom, static_cast<long long>(value.i)).ptr;
            break;
        case wmi::VT_UI8:
            out = bytes_.reserveTail(kNumberRoom);
            out =
                std::to_chars(out, out + kNumberRoom, static_cast<unsigned long long>(value.u)).ptr;
            break;
        default:
            addUnknown(value.vt);
            return;
    }
    bytes_.commitTail(out);
    const size_t length = bytes_.size() - start;
    setValue(start, length, length);
}

}  // namespace morvax
