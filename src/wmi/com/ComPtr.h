#pragma once

#include <utility>

namespace morvax::wmi {

// Owns one reference to a COM interface and releases it once.
template <typename T>
class ComPtr {
  public:
    ComPtr() = default;
    explicit ComPtr(T* adopted) : p_(adopted) {}
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    ComPtr& operator=(ComPtr&& other) noexcept {
        if (this != &other) {
            reset();
            p_ = std::exchange(other.p_, nullptr);
        }
        return *this;
    }
    ~ComPtr() { reset(); }

    void reset() {
        if (p_) {
            p_->Release();
            p_ = nullptr;
        }
    }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    // For out parameters: releases what is held and hands out the slot.
    T** put() {
        reset();
        return &p_;
    }

  private:
    T* p_ = nullptr;
};

}  // namespace morvax::wmi
