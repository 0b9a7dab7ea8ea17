#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <string_view>

#include "util/base/StrSegment.h"

namespace morvax {

// The text handle of configuration keys and values: an immutable, reference-counted string that
// any number of merged maps and caches hold without copying the bytes. A handle is one pointer;
// the null handle is the empty text. The count is atomic, so threads may copy and read one
// handle's text at the same time; the last owner frees it.
//
// Not to be confused with Str, the owned byte string of the whole system: a SharedStr is made
// once from bytes and never changes afterwards.
class SharedStr {
  public:
    constexpr SharedStr() noexcept = default;
    // Copies the bytes, with CR LF and a lone CR turned into LF, so that a value read from a file
    // with either line end holds LF only. Empty bytes give the null handle.
    explicit SharedStr(StrSegment bytes);
    SharedStr(const SharedStr& other) noexcept : block_(other.block_) { retain(); }
    SharedStr(SharedStr&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    ~SharedStr() { release(); }

    SharedStr& operator=(const SharedStr& other) noexcept;
    SharedStr& operator=(SharedStr&& other) noexcept;

    // Never null: the null handle gives "", and the text is always followed by a NUL.
    const char* data() const { return block_ ? block_->text() : ""; }
    const char* c_str() const { return data(); }
    size_t size() const { return block_ ? block_->length : 0; }
    bool empty() const { return block_ == nullptr; }
    std::string_view view() const { return std::string_view(data(), size()); }
    StrSegment segment() const { return StrSegment(data(), size()); }
    operator StrSegment() const { return segment(); }

    // Whether both handles hold the same bytes in memory, not merely equal text.
    bool sharesTextWith(const SharedStr& other) const { return block_ == other.block_; }

    void swap(SharedStr& other) noexcept;

    // Byte order, case sensitive.
    friend bool operator==(const SharedStr& a, const SharedStr& b) { return a.view() == b.view(); }
    friend bool operator==(const SharedStr& a, StrSegment b) { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const SharedStr& a, const SharedStr& b) {
        return a.view() <=> b.view();
    }
    friend std::strong_ordering operator<=>(const SharedStr& a, StrSegment b) {
        return a.view() <=> b.view();
    }

  private:
    // The count and the length, followed in the same allocation by the bytes and a NUL.
    struct Block {
        std::atomic<size_t> owners;
        size_t length;

        char* text() { return reinterpret_cast<char*>(this + 1); }
    };

    void retain() const {
        if (block_) {
            block_->owners.fetch_add(1, std::memory_order_relaxed);
        }
    }
    void release() noexcept;

    Block* block_ = nullptr;
};

}  // namespace morvax
