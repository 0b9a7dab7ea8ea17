#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimInstance.h"
#include "wmi/sim/SimObjectShape.h"
#include "wmi/wql/WqlObjectView.h"

namespace morvax::wmi {

// A result object of the simulated provider: a shape and either stored values or the index of a
// generated instance, whose values are computed when asked for. Immutable, so one object may be
// read from several threads. As a query view it sees every property, whatever the select list
// let through, since WHERE may test properties that are not selected.
class SimClassObject : public ClassObject, public WqlObjectView {
  public:
    SimClassObject(std::shared_ptr<const SimObjectShape> shape,
                   std::shared_ptr<const SimInstance> instance)
        : shape_(std::move(shape)), instance_(std::move(instance)) {}
    SimClassObject(std::shared_ptr<const SimObjectShape> shape, uint64_t index)
        : shape_(std::move(shape)), index_(index) {}

    // Made again as another result, by an enumerator that holds the only reference to it: a
    // million results need not cost a million allocations. The same shape is kept as it is.
    void remake(const std::shared_ptr<const SimObjectShape>& shape,
                std::shared_ptr<const SimInstance> instance, uint64_t index) {
        if (shape_ != shape) {
            shape_ = shape;
        }
        instance_ = std::move(instance);
        index_ = index;
    }

    // An embedded object or an event: all of the instance, in namespace `nameSpace`.
    static std::shared_ptr<SimClassObject> whole(std::shared_ptr<const SimInstance> instance,
                                                 const std::u16string& nameSpace);

    HRESULT getNames(std::vector<std::u16string>& out) override;
    // getNames assigns, which reuses the strings `out` holds.
    HRESULT replaceNames(std::vector<std::u16string>& out) override { return getNames(out); }
    HRESULT get(const std::u16string& name, Variant& out) override;
    HRESULT getWithType(const std::u16string& name, Variant& out, int32_t& cimType) override;
    // "abstract" of a superclass that the world names without declaring it.
    HRESULT getQualifier(const std::u16string& name, Variant& out) override;
    // Objects of one shape share its names.
    const void* shapeKey() const override { return shape_.get(); }
    std::shared_ptr<const void> shapeOwner() const override { return shape_; }
    HRESULT getAt(size_t index, const std::u16string& name, Variant& out) override;

    bool property(const std::vector<std::u16string>& path, Variant& out) const override;
    bool isA(const std::vector<std::u16string>& path,
             const std::u16string& className) const override;

    const SimObjectShape& shape() const { return *shape_; }
    const SimClass& simClass() const { return *shape_->simClass(); }
    // Property `index` of the class, selected or not.
    Variant value(size_t index) const;
    // As value(), into `out`, reusing its text storage.
    void fillValue(size_t index, Variant& out) const;
    // A property or system property by name, selected or not; false when there is none.
    bool lookup(const std::u16string& name, Variant& out) const;

  private:
    // Property `at` of the class, which the select list lets through.
    void selectedValue(size_t at, const std::u16string& name, Variant& out) const;
    bool systemProperty(const std::u16string& name, Variant& out) const;

    std::shared_ptr<const SimObjectShape> shape_;
    std::shared_ptr<const SimInstance> instance_;
    uint64_t index_ = 0;
};

}  // namespace morvax::wmi
