#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimInstance.h"

namespace morvax::wmi {

// The classes of one namespace of one host, in declared order, found without regard to case.
// The system event classes are in every namespace without being listed.
class SimNamespace {
  public:
    explicit SimNamespace(std::u16string name) : name_(std::move(name)) {}

    const std::u16string& name() const { return name_; }
    const std::vector<std::shared_ptr<const SimClass>>& classes() const { return classes_; }

    // A declared class, else a system event class, else a superclass that declared classes
    // name without declaring it (ABSTRACT); null when there is none of these.
    std::shared_ptr<const SimClass> find(const std::u16string& className) const;
    // `cls` and the declared classes derived from it, `cls` first.
    std::vector<std::shared_ptr<const SimClass>> withDerived(
        const std::shared_ptr<const SimClass>& cls) const;

    // The stored instances of a declared class.
    const std::vector<std::shared_ptr<const SimInstance>>& instancesOf(const SimClass& cls) const;

    // Adds a class, or replaces the one of the same name in its place (and drops its instances).
    void add(std::shared_ptr<const SimClass> cls);
    void setInstances(const SimClass& cls,
                      std::vector<std::shared_ptr<const SimInstance>> instances);

  private:
    std::u16string name_;
    std::vector<std::shared_ptr<const SimClass>> classes_;
    std::vector<std::vector<std::shared_ptr<const SimInstance>>> instances_;
    std::unordered_map<std::u32string, size_t> index_;
};

}  // namespace morvax::wmi
