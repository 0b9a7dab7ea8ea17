#include "wmi/sim/SimListEnumerator.h"

namespace morvax::wmi {

HRESULT SimListEnumerator::next(long, unsigned count,
                                std::vector<std::shared_ptr<ClassObject>>& out) {
    unsigned produced = 0;
    while (produced < count && position_ < objects_.size()) {
        out.push_back(objects_[position_++]);
        ++produced;
    }
    return produced == count && count > 0 ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
}

}  // namespace morvax::wmi
