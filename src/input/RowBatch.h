#pragma once

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
    // The text of `value` by the rules of an event; may take its text's storage.
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
    // The bytes of all values of a row together.
    size_t rowBytes(size_t row) const {
        const size_t end = row + 1 < rows_.size() ? rows_[row + 1].firstByte : bytes_.size();
        return end - rows_[row].firstByte;
    }

  private:
    struct Row {
        uint32_t plan;
        uint32_t firstValue;
        uint32_t firstByte;
    };
    void addNumberText(const char* text, size_t length);
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

}  // namespace morvax
