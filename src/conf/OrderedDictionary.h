#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <utility>

#include "util/base/Str.h"

namespace morvax {

// A map from byte-string keys (compared byte for byte) to values that iterates in insertion
// order: a sorted map for lookup over a list of the entries. Values stay where they are until
// erased, so a pointer to one survives later insertions.
template <typename V>
class OrderedDictionary {
  public:
    using Entry = std::pair<const Str, V>;
    using iterator = typename std::list<Entry>::iterator;
    using const_iterator = typename std::list<Entry>::const_iterator;

    OrderedDictionary() = default;
    // The lookup map points into the other's list, so a copy is rebuilt entry by entry.
    OrderedDictionary(const OrderedDictionary& other) {
        for (const Entry& entry : other.entries_) {
            emplace(entry.first, entry.second);
        }
    }
    OrderedDictionary& operator=(const OrderedDictionary& other) {
        if (this != &other) {
            OrderedDictionary copy(other);
            swap(copy);
        }
        return *this;
    }
    // Moving a list keeps its iterators valid, so the map moves along unchanged.
    OrderedDictionary(OrderedDictionary&&) noexcept = default;
    OrderedDictionary& operator=(OrderedDictionary&&) noexcept = default;

    void swap(OrderedDictionary& other) noexcept {
        entries_.swap(other.entries_);
        index_.swap(other.index_);
    }

    // Adds `value` at the end unless `key` is there; either way the entry under `key` and
    // whether it was added.
    std::pair<V*, bool> emplace(const Str& key, V value) {
        auto found = index_.find(key);
        if (found != index_.end()) {
            return {&found->second->second, false};
        }
        entries_.emplace_back(key, std::move(value));
        index_.emplace(key, std::prev(entries_.end()));
        return {&entries_.back().second, true};
    }

    V* find(const Str& key) {
        auto found = index_.find(key);
        return found != index_.end() ? &found->second->second : nullptr;
    }
    const V* find(const Str& key) const {
        auto found = index_.find(key);
        return found != index_.end() ? &found->second->second : nullptr;
    }
    bool contains(const Str& key) const { return index_.count(key) != 0; }

    bool erase(const Str& key) {
        auto found = index_.find(key);
        if (found == index_.end()) {
            return false;
        }
        entries_.erase(found->second);
        index_.erase(found);
        return true;
    }

    void clear() {
        index_.clear();
        entries_.clear();
    }

    size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }

    iterator begin() { return entries_.begin(); }
    iterator end() { return entries_.end(); }
    const_iterator begin() const { return entries_.begin(); }
    const_iterator end() const { return entries_.end(); }

  private:
    std::list<Entry> entries_;
    std::map<Str, iterator> index_;
};

}  // namespace morvax
