#include "util/regex/RegexCache.h"

#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "util/regex/Regex.h"
#include "util/regex/RegexSettings.h"
#include "util/thread/Mutex.h"
#include "util/thread/ScopedLock.h"

namespace morvax {

namespace {

struct Key {
    Str pattern;
    uint64_t options;
    friend bool operator==(const Key& a, const Key& b) {
        return a.options == b.options && a.pattern == b.pattern;
    }
};

struct KeyHash {
    size_t operator()(const Key& key) const {
        return std::hash<std::string_view>()(key.pattern.view()) ^
               (std::hash<uint64_t>()(key.options) * 0x9E3779B97F4A7C15ull);
    }
};

using IdleMap = std::unordered_map<Key, std::unique_ptr<const RegexRecord>, KeyHash>;

Key keyOf(const RegexRecord& record) {
    return Key{record.pattern(), record.options()};
}

std::unique_ptr<const RegexRecord> compileForProcess(StrSegment pattern, uint64_t options) {
    bool jit = RegexSettings::process().jitEnabled() && (options & Regex::OPTION_NO_JIT) == 0;
    return RegexRecord::compile(pattern, options, jit);
}

}  // namespace

// Shared by the cache and the deleters of the records it handed out, so that a record that
// outlives its cache can still be freed.
struct RegexCache::State {
    explicit State(size_t limit) : newMapLimit(limit) {}

    // Takes a record from the maps and returns it in use, or null. Under the lock.
    std::shared_ptr<const RegexRecord> lookup(const Key& key, const std::shared_ptr<State>& self);
    std::shared_ptr<const RegexRecord> publish(std::unique_ptr<const RegexRecord> record,
                                               const std::shared_ptr<State>& self);

    // Recursive, so that a deleter that runs under the lock (a failed publish) can take it.
    mutable Mutex mutex;
    bool closed = false;
    const size_t newMapLimit;
    std::unordered_map<Key, std::weak_ptr<const RegexRecord>, KeyHash> live;
    IdleMap newMap;
    IdleMap oldMap;
    Counters counters;
};

// Runs when the last user of a record goes: the record goes to the new map instead of away.
class RegexCache::Returner {
  public:
    explicit Returner(std::shared_ptr<State> state) : state_(std::move(state)) {}
    void operator()(const RegexRecord* raw) const;

  private:
    std::shared_ptr<State> state_;
};

void RegexCache::Returner::operator()(const RegexRecord* raw) const {
    std::unique_ptr<const RegexRecord> record(raw);
    // Freed after the lock is released.
    std::vector<std::unique_ptr<const RegexRecord>> displaced;
    IdleMap retired;
    {
        ScopedLock lock(state_->mutex);
        if (state_->closed) {
            displaced.push_back(std::move(record));
        } else {
            Key key = keyOf(*record);
            auto live = state_->live.find(key);
            if (live != state_->live.end() && live->second.expired()) {
                state_->live.erase(live);
            }
            auto old = state_->oldMap.find(key);
            if (old != state_->oldMap.end()) {
                displaced.push_back(std::move(old->second));
                state_->oldMap.erase(old);
            }
            std::unique_ptr<const RegexRecord>& slot = state_->newMap[std::move(key)];
            displaced.push_back(std::move(slot));
            slot = std::move(record);
            if (state_->newMap.size() > state_->newMapLimit) {
                retired.swap(state_->oldMap);
                state_->oldMap.swap(state_->newMap);
            }
        }
    }
}

std::shared_ptr<const RegexRecord> RegexCache::State::lookup(const Key& key,
                                                             const std::shared_ptr<State>& self) {
    auto found = live.find(key);
    if (found != live.end()) {
        if (std::shared_ptr<const RegexRecord> record = found->second.lock()) {
            return record;
        }
        live.erase(found);
    }
    for (IdleMap* map : {&newMap, &oldMap}) {
        auto idle = map->find(key);
        if (idle != map->end()) {
            std::unique_ptr<const RegexRecord> record = std::move(idle->second);
            map->erase(idle);
            return publish(std::move(record), self);
        }
    }
    return nullptr;
}

std::shared_ptr<const RegexRecord> RegexCache::State::publish(
    std::unique_ptr<const RegexRecord> record, const std::shared_ptr<State>& self) {
    Key key = keyOf(*record);
    std::shared_ptr<const RegexRecord> shared(record.release(), Returner(self));
    live[std::move(key)] = shared;
    return shared;
}

RegexCache::RegexCache(size_t newMapLimit, Compiler compiler)
    : state_(std::make_shared<State>(newMapLimit)),
      compiler_(compiler ? std::move(compiler) : Compiler(&compileForProcess)) {}

RegexCache::~RegexCache() {
    IdleMap newMap;
    IdleMap oldMap;
    ScopedLock lock(state_->mutex);
    state_->closed = true;
    state_->live.clear();
    newMap.swap(state_->newMap);
    oldMap.swap(state_->oldMap);
}

std::shared_ptr<const RegexRecord> RegexCache::get(StrSegment pattern, uint64_t options) {
    Key key{Str(pattern), options};
    {
        ScopedLock lock(state_->mutex);
        if (std::shared_ptr<const RegexRecord> record = state_->lookup(key, state_)) {
            ++state_->counters.hits;
            return record;
        }
        ++state_->counters.misses;
    }
    // Compiling is the costly step: other threads keep using the cache meanwhile.
    std::unique_ptr<const RegexRecord> compiled = compiler_(pattern, options);
    ScopedLock lock(state_->mutex);
    if (std::shared_ptr<const RegexRecord> record = state_->lookup(key, state_)) {
        ++state_->counters.races;
        // `compiled` is freed after the lock, being declared before it.
        return record;
    }
    return state_->publish(std::move(compiled), state_);
}

RegexCache::Counters RegexCache::counters() const {
    ScopedLock lock(state_->mutex);
    Counters counters = state_->counters;
    counters.liveRecords = 0;
    for (const auto& entry : state_->live) {
        counters.liveRecords += entry.second.expired() ? 0 : 1;
    }
    counters.newIdleRecords = state_->newMap.size();
    counters.oldIdleRecords = state_->oldMap.size();
    return counters;
}

RegexCache& RegexCache::process() {
    static RegexCache cache;
    return cache;
}

}  // namespace morvax
