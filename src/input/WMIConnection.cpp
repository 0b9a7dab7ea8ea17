#include "input/WMIConnection.h"

#include <vector>

#include "input/ResultProcessing.h"
#include "input/WMIException.h"
#include "input/WMILogger.h"
#include "input/WMIQueryProcessor.h"

namespace morvax {

WMIConnection::WMIConnection(Str nameSpace) : namespace_(std::move(nameSpace)) {}

WMIConnection::~WMIConnection() = default;

void WMIConnection::connectionDone(std::shared_ptr<wmi::Services> services, wmi::HRESULT status) {
    services_ = std::move(services);
    connectStatus_ = status;
}

void WMIConnection::clearAnswer() {
    services_.reset();
    connectStatus_ = 0;
}

wmi::HRESULT WMIConnection::executeQuery(WMIQueryProcessor& processor) {
    const Str wql = processor.getWql();
    const Str description = processor.describe();
    wmiLogger().debug("Executing query wql=\"%s\" (%s)", wql.c_str(), description.c_str());

    wmi::HRESULT hr = wmi::COM_E_POINTER;
    enumerator_.reset();
    if (services_) {
        hr = processor.runQuery(*services_, Str::toWide(wql), enumerator_);
    }
    if (wmi::failed(hr)) {
        Str text;
        text.appendFormat("Executing query failed (query=\"%s\")", wql.c_str());
        wmiLogger().error(formatWMIError(text.segment(), hr, description.segment()).segment());
        services_.reset();
        connectStatus_ = 0;
        enumerator_.reset();
    }
    activeProcessor_ = &processor;
    return hr;
}

int WMIConnection::readResults(WMIQueryProcessor& processor) {
    if (&processor != activeProcessor_ || !enumerator_) {
        return 0;
    }
    std::vector<std::shared_ptr<wmi::ClassObject>> objects;
    objects.reserve(BATCH_SIZE);
    RecordRecycler recycler;
    uint64_t total = 0;
    try {
        for (;;) {
            if (isCancelled()) {
                return 0;
            }
            objects.clear();
            const wmi::HRESULT hr = enumerator_->next(0, BATCH_SIZE, objects);
            status_ = hr;
            const size_t count = objects.size();
            if (hr == wmi::WBEM_S_FALSE && count == 0) {
                if (total == 0) {
                    // An empty result is news too: a processor learns of it from an empty batch.
                    processResults(processor, nullptr, 0, recycler);
                }
                return 1;
            }
            if (hr == wmi::WBEM_S_TIMEDOUT && count == 0) {
                return 0;
            }
            if (wmi::failed(hr)) {
                wmiLogger().error(
                    formatWMIError(
                        "Error occurred while trying to retrieve results from a WMI query", hr,
                        processor.describe().segment())
                        .segment());
                return -1;
            }
            processResults(processor, objects.data(), count, recycler);
            total += count;
        }
    } catch (const WMIException&) {
        return -1;
    }
}

}  // namespace morvax
