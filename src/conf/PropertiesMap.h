#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "conf/PropertiesMapMetadata.h"
#include "conf/SharedStr.h"
#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"

namespace morvax {

// The settings of one stanza after all layers were merged, each with the record of where it
// came from. A value type: copies share the text of keys and values, never copy it.
//
// A reader declares a map, has it filled, then calls typed getters with variables that already
// hold the defaults. An absent key and a key with an empty value are the same to every getter:
// the output is left as it was, so the caller's prior value is the setting's default. A value
// that a numeric or boolean getter cannot convert logs at WARN on the channel "PropertiesMap"
// and also leaves the output alone. Getters never change the map and never throw.
//
// No lock: a map is confined to one thread while it is written.
class PropertiesMap {
  public:
    // Keys in byte order, case sensitive; looked up by any text without making a handle.
    using Entries = std::map<SharedStr, PropertiesMapMetadata, std::less<>>;

    // Empty, with a stanza record of priority 0 owned by "nobody".
    PropertiesMap() = default;

    // "t", "true", "yes", "1" and "f", "false", "no", "0", in any case.
    bool getBool(StrSegment key, bool& out) const;
    // Base 10 as strtol reads it: white space, an optional sign, digits up to the end.
    bool getInt(StrSegment key, int32_t& out) const;
    // Base 10 as strtoul reads it, except that a minus sign is refused rather than wrapped.
    bool getUnsigned(StrSegment key, uint32_t& out) const;
    bool getSizeT(StrSegment key, size_t& out) const;
    // The number, or `defaultValue` for an absent, empty or unreadable value, without a warning.
    int64_t getInt64(StrSegment key, int64_t defaultValue) const;
    // The text as it stands.
    bool getString(StrSegment key, Str& out) const;
    // The stored text itself, shared; the empty handle when the key is unset.
    const SharedStr& getStringRef(StrSegment key) const;
    // The text with environment variables expanded (InstallationInfo::expandVariables). True
    // when the key is set; `out` is replaced only when the expansion gave text, so a value that
    // expands to nothing keeps the default.
    bool getPath(StrSegment key, Pathname& out) const;
    // The same expansion as wide text, for expanded values that are no file paths (a
    // namespace, a list of servers).
    bool getExpandedWide(StrSegment key, WStr& out) const;

    // Whether the key "disabled" switches the stanza off. Absent, empty or a false word: no.
    // A true word, and also any text that is no boolean: yes, so that an unreadable value
    // errs on the side of not running the stanza.
    bool isDisabled() const;

    // Appends "PropertiesMap: {", each key as "key -> 'value'" in map order separated by one
    // blank, then "}".
    void dump(Str& out) const;

    // Adds to `destination` the layer `source`. Keys that `destination` already has stay as they
    // are, so the order of the calls decides which layer wins, whatever `primary` says. Each
    // key taken over records in `matchingStanza` the stanza that supplied it: the one that
    // `source` names in its stanza record, else `stanzaName`. The stanza record is taken over
    // too while `destination` has none of priority above 0. A primary source also gives its
    // expansion.
    static void merge(const PropertiesMap& source, PropertiesMap& destination, bool primary,
                      const SharedStr& stanzaName);

    // Stores `value` for `key`; a new key's record has defaults in every other field.
    void set(StrSegment key, StrSegment value);

    const Entries& entries() const { return entries_; }
    bool empty() const { return entries_.empty(); }
    size_t size() const { return entries_.size(); }
    // The key's record, or null.
    const PropertiesMapMetadata* find(StrSegment key) const;
    // The key's record, inserted with defaults when absent: how a builder fills a map.
    PropertiesMapMetadata& record(const SharedStr& key);

    const PropertiesMapMetadata& stanzaMetadata() const { return stanzaMetadata_; }
    PropertiesMapMetadata& stanzaMetadata() { return stanzaMetadata_; }

    // The stanza's name after expansion, empty when it has none.
    const SharedStr& expansion() const { return expansion_; }
    void setExpansion(SharedStr expansion) { expansion_ = std::move(expansion); }

    // The cache's map that this one shares, for maps handed out by a cache; null in a map that
    // a reader owns.
    const std::shared_ptr<const PropertiesMap>& storage() const { return storage_; }
    void setStorage(std::shared_ptr<const PropertiesMap> storage) { storage_ = std::move(storage); }

  private:
    Entries entries_;
    std::shared_ptr<const PropertiesMap> storage_;
    PropertiesMapMetadata stanzaMetadata_;
    SharedStr expansion_;
};

}  // namespace morvax
