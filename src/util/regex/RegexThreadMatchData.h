#pragma once

#include <cstdint>

struct pcre2_real_match_data_8;

namespace morvax {

// The match data of the calling thread, reused by every search on it, so that a search
// allocates nothing once the thread has met its largest pattern. Freed when the thread ends.
// (A thread_local object with a destructor is not used: the Windows toolchain may free its
// storage before the destructor runs.)
class RegexThreadMatchData {
  public:
    // Room for at least `pairs` offset pairs. Throws std::bad_alloc.
    static pcre2_real_match_data_8* get(uint32_t pairs);

  private:
    struct Entry {
        pcre2_real_match_data_8* data;
        uint32_t pairs;
    };

    // The platform's per-thread slot, whose value is freed by release() at thread end.
    static Entry* current();
    static void setCurrent(Entry* entry);
    static void release(void* entry);
};

}  // namespace morvax
