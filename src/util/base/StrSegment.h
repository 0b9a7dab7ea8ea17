#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace morvax {

// A non-owning view of bytes. The bytes must outlive the segment.
class StrSegment {
  public:
    constexpr StrSegment() = default;
    constexpr StrSegment(const char* data, size_t length) : data_(data), length_(length) {}
    StrSegment(const char* cstring) : data_(cstring), length_(cstring ? std::strlen(cstring) : 0) {}
    constexpr StrSegment(std::string_view view) : data_(view.data()), length_(view.size()) {}

    constexpr const char* data() const { return data_; }
    constexpr size_t size() const { return length_; }
    constexpr size_t length() const { return length_; }
    constexpr bool empty() const { return length_ == 0; }
    constexpr const char* begin() const { return data_; }
    constexpr const char* end() const { return data_ + length_; }
    constexpr char operator[](size_t i) const { return data_[i]; }
    constexpr std::string_view view() const { return std::string_view(data_, length_); }

    friend bool operator==(StrSegment a, StrSegment b) { return a.view() == b.view(); }

  private:
    const char* data_ = nullptr;
    size_t length_ = 0;
};

}  // namespace morvax
