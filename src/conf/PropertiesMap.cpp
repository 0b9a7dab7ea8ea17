#include "conf/PropertiesMap.h"

#include <charconv>
#include <system_error>
#include <type_traits>

#include "conf/InstallationInfo.h"
#include "conf/PropertiesMapLogger.h"
#include "util/base/Ascii.h"
#include "util/log/LogConfiguration.h"

namespace morvax {

namespace {

// What getStringRef answers for an unset key.
const SharedStr kUnset;

// Base 10 as strtol and strtoul read it: white space, an optional sign, then digits up to the
// end of the text. Unlike strtoul, a minus sign before an unsigned type is refused, and so is
// any value out of the type's range. `value` is set only on success.
template <typename T>
bool parseDecimal(StrSegment text, T& value) {
    const char* p = text.begin();
    const char* const end = text.end();
    while (p < end && isSpace(*p)) {
        ++p;
    }
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) {
        negative = *p == '-';
        ++p;
    }
    if (p == end || !isDigit(*p) || (negative && std::is_unsigned_v<T>)) {
        return false;
    }
    // from_chars reads the minus itself, so that the lowest value of a signed type fits.
    T result;
    auto [stop, error] = std::from_chars(negative ? p - 1 : p, end, result);
    if (error != std::errc() || stop != end) {
        return false;
    }
    value = result;
    return true;
}

// The part that the boolean and numeric getters share: an unset value converts to nothing, a
// value that `parse` refuses is reported with the type's word.
template <typename T>
bool convert(const SharedStr& value, StrSegment key, const char* typeWord,
             bool (*parse)(StrSegment, T&), T& out) {
    if (value.empty()) {
        return false;
    }
    if (parse(value, out)) {
        return true;
    }
    propertiesMapLogger().warn("Cannot convert string \"%s\" into %s for \"%s\"", value.c_str(),
                               typeWord, Str(key).c_str());
    return false;
}

// False for an unset value; otherwise true, with the environment variables of the value
// expanded, which may leave nothing.
bool expand(const SharedStr& value, Str& expanded) {
    if (value.empty()) {
        return false;
    }
    expanded = InstallationInfo::instance().expandVariables(value);
    return true;
}

}  // namespace

// The boolean words are those of the whole system, which the log configuration also reads.
bool PropertiesMap::getBool(StrSegment key, bool& out) const {
    return convert(getStringRef(key), key, "bool", &LogConfiguration::parseBoolean, out);
}

bool PropertiesMap::getInt(StrSegment key, int32_t& out) const {
    return convert(getStringRef(key), key, "int", &parseDecimal<int32_t>, out);
}

bool PropertiesMap::getUnsigned(StrSegment key, uint32_t& out) const {
    return convert(getStringRef(key), key, "unsigned", &parseDecimal<uint32_t>, out);
}

bool PropertiesMap::getSizeT(StrSegment key, size_t& out) const {
    return convert(getStringRef(key), key, "size_t", &parseDecimal<size_t>, out);
}

int64_t PropertiesMap::getInt64(StrSegment key, int64_t defaultValue) const {
    int64_t value = defaultValue;
    parseDecimal(getStringRef(key), value);
    return value;
}

bool PropertiesMap::getString(StrSegment key, Str& out) const {
    const SharedStr& value = getStringRef(key);
    if (value.empty()) {
        return false;
    }
    out = value.segment();
    return true;
}

const SharedStr& PropertiesMap::getStringRef(StrSegment key) const {
    const PropertiesMapMetadata* found = find(key);
    return found ? found->value : kUnset;
}

bool PropertiesMap::getPath(StrSegment key, Pathname& out) const {
    Str expanded;
    if (!expand(getStringRef(key), expanded)) {
        return false;
    }
    if (!expanded.empty()) {
        out = expanded;
    }
    return true;
}

bool PropertiesMap::getExpandedWide(StrSegment key, WStr& out) const {
    Str expanded;
    if (!expand(getStringRef(key), expanded)) {
        return false;
    }
    if (!expanded.empty()) {
        out = expanded.toWide();
    }
    return true;
}

bool PropertiesMap::isDisabled() const {
    const SharedStr& value = getStringRef("disabled");
    bool disabled = false;
    return !value.empty() && (!LogConfiguration::parseBoolean(value, disabled) || disabled);
}

void PropertiesMap::dump(Str& out) const {
    out.append("PropertiesMap: {");
    const char* separator = "";
    for (const auto& [key, record] : entries_) {
        out.append(separator).append(key).append(" -> '").append(record.value).append('\'');
        separator = " ";
    }
    out.append('}');
}

void PropertiesMap::merge(const PropertiesMap& source, PropertiesMap& destination, bool primary,
                          const SharedStr& stanzaName) {
    if (primary) {
        destination.expansion_ = source.expansion_;
    }
    // A copy of the handle, in case the caller's name lives in the destination's records.
    const SharedStr name = source.stanzaMetadata_.matchingStanza.empty()
                               ? stanzaName
                               : source.stanzaMetadata_.matchingStanza;
    Entries& target = destination.entries_;
    if (target.size() <= source.entries_.size()) {
        // Both maps are sorted, so one pass over both finds every gap without a lookup per key;
        // the destination usually starts out empty.
        auto at = target.begin();
        for (const auto& entry : source.entries_) {
            while (at != target.end() && at->first < entry.first) {
                ++at;
            }
            if (at != target.end() && at->first == entry.first) {
                continue;
            }
            target.emplace_hint(at, entry)->second.matchingStanza = name;
        }
    } else {
        for (const auto& [key, record] : source.entries_) {
            auto [at, inserted] = target.try_emplace(key, record);
            if (inserted) {
                at->second.matchingStanza = name;
            }
        }
    }
    if (destination.stanzaMetadata_.priority == 0) {
        destination.stanzaMetadata_ = source.stanzaMetadata_;
        destination.stanzaMetadata_.matchingStanza = name;
    }
}

void PropertiesMap::set(StrSegment key, StrSegment value) {
    auto at = entries_.lower_bound(key);
    if (at == entries_.end() || at->first != key) {
        at = entries_.emplace_hint(at, SharedStr(key), PropertiesMapMetadata());
    }
    at->second.value = SharedStr(value);
}

const PropertiesMapMetadata* PropertiesMap::find(StrSegment key) const {
    auto at = entries_.find(key);
    return at == entries_.end() ? nullptr : &at->second;
}

PropertiesMapMetadata& PropertiesMap::record(const SharedStr& key) {
    return entries_.try_emplace(key).first->second;
}

}  // namespace morvax
