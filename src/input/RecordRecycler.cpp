#include "input/RecordRecycler.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace morvax {

namespace {

// Enough for a batch of objects of a few dozen properties each.
constexpr size_t MAX_SPARE_ENTRIES = 4096;

bool sameText(const WStr& a, const WStr& b) {
    return a.size() == b.size() &&
           std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

}  // namespace

EventRecord::node_type RecordRecycler::entry(const WStr& name) {
    if (spare_.empty()) {
        // A map is the only maker of entries.
        EventRecord maker;
        maker.try_emplace(name);
        return maker.extract(maker.begin());
    }
    EventRecord::node_type node = std::move(spare_.back());
    spare_.pop_back();
    node.key() = name;
    node.mapped().clear();
    return node;
}

void RecordRecycler::keep(EventRecord::node_type entry) {
    if (!entry.empty() && spare_.size() < MAX_SPARE_ENTRIES) {
        spare_.push_back(std::move(entry));
    }
}

void RecordRecycler::takeBack(EventRecord& record) {
    while (!record.empty() && spare_.size() < MAX_SPARE_ENTRIES) {
        spare_.push_back(record.extract(std::prev(record.end())));
    }
    record.clear();
}

bool RecordRecycler::fits(const EventRecord& record, const std::vector<WStr>& names) {
    if (!std::equal(names.begin(), names.end(), lastNames_.begin(), lastNames_.end(), sameText)) {
        lastNames_ = names;
        sortedNames_ = names;
        std::sort(sortedNames_.begin(), sortedNames_.end());
        sortedNames_.erase(std::unique(sortedNames_.begin(), sortedNames_.end()),
                           sortedNames_.end());
    }
    if (record.size() != sortedNames_.size()) {
        return false;
    }
    auto entry = record.begin();
    for (const WStr& name : sortedNames_) {
        if (!sameText(entry->first, name)) {
            return false;
        }
        ++entry;
    }
    return true;
}

}  // namespace morvax
