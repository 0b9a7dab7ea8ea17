#pragma once

#include <memory>
#include <vector>

#include "wmi/Wmi.h"

namespace morvax::wmi {

// Delivers a list of objects made beforehand, such as the class definitions of a namespace.
class SimListEnumerator : public Enumerator {
  public:
    explicit SimListEnumerator(std::vector<std::shared_ptr<ClassObject>> objects)
        : objects_(std::move(objects)) {}

    HRESULT next(long timeoutMs, unsigned count,
                 std::vector<std::shared_ptr<ClassObject>>& out) override;

  private:
    std::vector<std::shared_ptr<ClassObject>> objects_;
    size_t position_ = 0;
};

}  // namespace morvax::wmi
