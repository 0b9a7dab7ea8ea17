#include "wmi/com/ComEnumerator.h"

#include "wmi/com/ComClassObject.h"

namespace morvax::wmi {

HRESULT ComEnumerator::next(long timeoutMs, unsigned count,
                            std::vector<std::shared_ptr<ClassObject>>& out) {
    constexpr unsigned kMaxBatch = 100;
    IWbemClassObject* objects[kMaxBatch] = {};
    if (count > kMaxBatch) {
        count = kMaxBatch;
    }
    ULONG returned = 0;
    ::HRESULT hr = enumerator_->Next(timeoutMs, count, objects, &returned);
    // Objects come with every non-failing status, WBEM_S_FALSE and WBEM_S_TIMEDOUT included.
    for (ULONG i = 0; i < returned && i < count; ++i) {
        if (objects[i]) {
            out.push_back(std::make_shared<ComClassObject>(objects[i]));
        }
    }
    return static_cast<HRESULT>(hr);
}

}  // namespace morvax::wmi
