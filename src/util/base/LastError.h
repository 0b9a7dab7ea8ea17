#pragma once

#include <cstdint>

namespace morvax {

// The platform's last-error value: GetLastError on Windows, errno elsewhere.
class LastError {
  public:
    static uint32_t get();
    static void set(uint32_t value);
};

// Restores the last-error value of its construction when it goes out of scope, so that
// logging and formatting never disturb the value a caller is about to report.
class LastErrorPreserver {
  public:
    LastErrorPreserver() : saved_(LastError::get()) {}
    ~LastErrorPreserver() { LastError::set(saved_); }
    LastErrorPreserver(const LastErrorPreserver&) = delete;
    LastErrorPreserver& operator=(const LastErrorPreserver&) = delete;
    uint32_t saved() const { return saved_; }

  private:
    uint32_t saved_;
};

}  // namespace morvax
