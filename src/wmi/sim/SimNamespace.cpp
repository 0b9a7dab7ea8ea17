#include "wmi/sim/SimNamespace.h"

#include "wmi/sim/SimBuiltins.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

std::shared_ptr<const SimClass> SimNamespace::find(const std::u16string& className) const {
    auto it = index_.find(WqlText::fold(className));
    if (it != index_.end()) {
        return classes_[it->second];
    }
    for (const auto& cls : SimBuiltins::eventClasses()) {
        if (SimClass::sameName(cls->name(), className)) {
            return cls;
        }
    }
    for (const auto& cls : classes_) {
        const std::vector<std::u16string>& chain = cls->derivation();
        for (size_t i = 1; i < chain.size(); ++i) {
            if (SimClass::sameName(chain[i], className)) {
                auto abstract = std::make_shared<SimClass>(chain[i], u"");
                abstract->setDerivation(
                    std::vector<std::u16string>(chain.begin() + i, chain.end()));
                abstract->setSource(SimClass::Source::ABSTRACT);
                return abstract;
            }
        }
    }
    return nullptr;
}

std::vector<std::shared_ptr<const SimClass>> SimNamespace::withDerived(
    const std::shared_ptr<const SimClass>& cls) const {
    std::vector<std::shared_ptr<const SimClass>> out = {cls};
    for (const auto& other : classes_) {
        if (other != cls && other->isA(cls->name())) {
            out.push_back(other);
        }
    }
    return out;
}

const std::vector<std::shared_ptr<const SimInstance>>& SimNamespace::instancesOf(
    const SimClass& cls) const {
    static const std::vector<std::shared_ptr<const SimInstance>> none;
    auto it = index_.find(WqlText::fold(cls.name()));
    if (it == index_.end() || classes_[it->second].get() != &cls) {
        return none;
    }
    return instances_[it->second];
}

void SimNamespace::add(std::shared_ptr<const SimClass> cls) {
    auto key = WqlText::fold(cls->name());
    auto it = index_.find(key);
    if (it != index_.end()) {
        classes_[it->second] = std::move(cls);
        instances_[it->second].clear();
        return;
    }
    index_.emplace(std::move(key), classes_.size());
    classes_.push_back(std::move(cls));
    instances_.emplace_back();
}

void SimNamespace::setInstances(const SimClass& cls,
                                std::vector<std::shared_ptr<const SimInstance>> instances) {
    auto it = index_.find(WqlText::fold(cls.name()));
    if (it != index_.end() && classes_[it->second].get() == &cls) {
        instances_[it->second] = std::move(instances);
    }
}

}  // namespace morvax::wmi
