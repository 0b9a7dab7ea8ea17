#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string>

namespace morvax::wmi {

// Owns a BSTR. An allocation failure leaves it null, which callers report as out of memory.
class ComBstr {
  public:
    ComBstr() = default;
    explicit ComBstr(const std::u16string& text)
        : b_(SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                               static_cast<UINT>(text.size()))) {}
    ComBstr(const ComBstr&) = delete;
    ComBstr& operator=(const ComBstr&) = delete;
    ~ComBstr() { SysFreeString(b_); }

    BSTR get() const { return b_; }
    BSTR* put() {
        SysFreeString(b_);
        b_ = nullptr;
        return &b_;
    }
    static std::u16string text(BSTR b) {
        return b ? std::u16string(reinterpret_cast<const char16_t*>(b), SysStringLen(b))
                 : std::u16string();
    }

  private:
    BSTR b_ = nullptr;
};

}  // namespace morvax::wmi
