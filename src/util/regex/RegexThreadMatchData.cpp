#include "util/regex/RegexThreadMatchData.h"

#include <new>

#include <pcre2.h>

namespace morvax {

pcre2_match_data* RegexThreadMatchData::get(uint32_t pairs) {
    Entry* entry = current();
    if (entry == nullptr) {
        entry = new Entry{nullptr, 0};
        setCurrent(entry);
    }
    if (entry->data == nullptr || entry->pairs < pairs) {
        pcre2_match_data* bigger = pcre2_match_data_create(pairs, nullptr);
        if (bigger == nullptr) {
            throw std::bad_alloc();
        }
        if (entry->data != nullptr) {
            pcre2_match_data_free(entry->data);
        }
        entry->data = bigger;
        entry->pairs = pairs;
    }
    return entry->data;
}

void RegexThreadMatchData::release(void* raw) {
    Entry* entry = static_cast<Entry*>(raw);
    if (entry != nullptr) {
        if (entry->data != nullptr) {
            pcre2_match_data_free(entry->data);
        }
        delete entry;
    }
}

}  // namespace morvax
