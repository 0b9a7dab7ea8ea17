#include "input/RowBatch.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "input/ComErrorException.h"

namespace morvax {

namespace {

// As VariantChangeType, where a failure is not expected and so not survivable either.
void changeTypeOrThrow(wmi::Variant& value, uint16_t vt) {
    const wmi::HRESULT hr = wmi::changeType(value, value, vt);
    if (wmi::failed(hr)) {
        throw ComErrorException(hr);
    }
}

}  // namespace

void RowBatch::clear() {
    bytes_.clear();
    next_ = 0;
    rows_.clear();
    plans_.clear();
}

void RowBatch::beginRow(const std::shared_ptr<const RowPlan>& plan) {
    if (plans_.empty() || plans_.back() != plan) {
        plans_.push_back(plan);
    }
    rows_.push_back(Row{static_cast<uint32_t>(plans_.size() - 1), static_cast<uint32_t>(next_),
                        static_cast<uint32_t>(bytes_.size())});
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
}

void RowBatch::addText(std::string_view text) {
    const size_t start = bytes_.size();
    bytes_.append(text.data(), text.size());
    const size_t cut = std::min(text.find('\0'), text.size());
    setValue(start, text.size(), cut);
}

void RowBatch::addNumberText(const char* text, size_t length) {
    const size_t start = bytes_.size();
    char* out = bytes_.reserveTail(length);
    bytes_.commitTail(EventBuffer::copy(out, text, length));
    setValue(start, length, length);
}

// Only the types that WMI uses for numbers, strings and flags have a text of their own; every
// other type, arrays included, is named by its number. Numbers are printed as the platform's
// conversion to VT_INT or VT_UINT gives them; within range that is the number itself, so the
// conversion is only asked for out of range.
void RowBatch::addValue(wmi::Variant& value) {
    constexpr size_t kNumberRoom = 48;
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
        default: {
            static constexpr std::string_view prefix = "<unknown variant result type ";
            out = bytes_.reserveTail(kNumberRoom);
            out = EventBuffer::copy(out, prefix.data(), prefix.size());
            out = std::to_chars(out, out + 8, value.vt).ptr;
            *out++ = '>';
            break;
        }
    }
    bytes_.commitTail(out);
    const size_t length = bytes_.size() - start;
    setValue(start, length, length);
}

}  // namespace morvax
