#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimTypes.h"

namespace morvax::wmi {

struct SimProperty {
    std::u16string name;
    SimType type;
};

// One class: its schema (properties in declared order, inherited ones first), its place in the
// class tree, and where its instances come from (stored ones are the namespace's, so that
// instances can point at their class without a cycle). Built by the loader and read-only once
// it is shared.
class SimClass {
  public:
    enum class Source {
        WORLD,      // the namespace's stored instances plus `synthetic` generated ones
        HOST,       // filled from this machine at each query
        EVENT_LOG,  // the records of the host's event logs
        NONE,       // events and ad hoc classes: no instances of their own
        ABSTRACT,   // a superclass known only by name: its instances are its subclasses'
    };

    SimClass(std::u16string name, std::u16string superclass);

    const std::u16string& name() const { return name_; }
    // Empty for a root class.
    const std::u16string& superclass() const { return superclass_; }
    // The class itself, its superclass, and so on up to the root.
    const std::vector<std::u16string>& derivation() const { return derivation_; }
    bool isA(const std::u16string& className) const;
    // Names of classes and properties compare without regard to case.
    static bool sameName(const std::u16string& a, const std::u16string& b);

    const std::vector<SimProperty>& properties() const { return properties_; }
    // The position of a property, without regard to case; -1 when the class has none.
    int find(const std::u16string& name) const;

    Source source() const { return source_; }
    uint64_t synthetic() const { return synthetic_; }

    // Building.
    // Adds or, for a name it has, retypes a property.
    void addProperty(const std::u16string& name, const SimType& type);
    void setDerivation(std::vector<std::u16string> derivation) {
        derivation_ = std::move(derivation);
    }
    void setSource(Source source) { source_ = source; }
    void setSynthetic(uint64_t count) { synthetic_ = count; }

  private:
    std::u16string name_;
    std::u16string superclass_;
    std::vector<std::u16string> derivation_;
    std::vector<SimProperty> properties_;
    // Properties with ASCII names, by a hash of their spelling in lower case (open addressing,
    // at most half full): a lookup costs one pass over the name and mostly one comparison.
    struct Slot {
        uint32_t hash = 0;
        int32_t property = -1;  // -1: empty
    };
    std::vector<Slot> slots_;
    // Properties whose names reach beyond ASCII, by folded name. Only these can match a name
    // that differs from theirs in more than ASCII case.
    std::unordered_map<std::u32string, int> wide_;

    int findAscii(const char16_t* name, size_t size, uint64_t hash) const;
    void index(size_t property, uint64_t hash);
    void place(size_t property, uint64_t hash);
    Source source_ = Source::WORLD;
    uint64_t synthetic_ = 0;
};

}  // namespace morvax::wmi
