#include "input/RowBatch.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "input/ComErrorException.h"

namespace morvax {

void RowBatch::clear() {
    bytes_.clear();
    next_ = 0;
    rowValues_ = 0;
    rows_.clear();
    plans_.clear();
}

void RowBatch::beginRow(const std::shared_ptr<const RowPlan>& plan) {
    if (plans_.empty() || plans_.back() != plan) {
        plans_.push_back(plan);
    }
    rows_.push_back(Row{static_cast<uint32_t>(plans_.size() - 1), static_cast<uint32_t>(next_),
                        static_cast<uint32_t>(bytes_.size()), kNoByte, true});
    rowValues_ = next_;
    const size_t wanted = next_ + plan->columns().size();
    if (wanted > capacity_) {
        size_t capacity = capacity_ < 256 ? 256 : capacity_;
        while (capacity < wanted) {
            capacity *= 2;
        }
        std::unique_ptr<Value[]> fresh(new Value[capacity]);
        std::copy(values_.get(), values_.get() + next_, fresh.get());
        values_ = std::move(fresh);
        capacity_ = capacity;
    }
    next_ = wanted;
}

void RowBatch::changeTypeOrThrow(wmi::Variant& value, uint16_t vt) {
    const wmi::HRESULT hr = wmi::changeType(value, value, vt);
    if (wmi::failed(hr)) {
        throw ComErrorException(hr);
    }
}

void RowBatch::addUnknown(const RowPlan::Line& line, uint16_t vt) {
    static constexpr std::string_view text = "<unknown variant result type ";
    const size_t start = writePrefix(line);
    char* out = bytes_.reserveTail(text.size() + 8);
    out = EventBuffer::copy(out, text.data(), text.size());
    out = std::to_chars(out, out + 8, vt).ptr;
    *out++ = '>';
    bytes_.commitTail(out);
    const size_t length = bytes_.size() - start;
    bytes_.append('\n');
    setValue(line.slot, start, length);
}

}  // namespace morvax
