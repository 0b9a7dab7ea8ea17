#include "input/WMIQueryProcessor.h"

namespace morvax {

wmi::HRESULT WMIQueryProcessor::runPlainQuery(wmi::Services& services, const WStr& wql,
                                              std::unique_ptr<wmi::Enumerator>& out) {
    return services.execQuery(wql, out);
}

wmi::HRESULT WMIQueryProcessor::runNotificationQuery(wmi::Services& services, const WStr& wql,
                                                     std::unique_ptr<wmi::Enumerator>& out) {
    return services.execNotificationQuery(wql, out);
}

WMIQueryProcessor::~WMIQueryProcessor() = default;

Str WMIQueryProcessor::describe() {
    return Str("WMIQueryProcessor");
}

void WMIQueryProcessor::filterRecord(EventRecord&) {}

void WMIQueryProcessor::writeObjects(const std::shared_ptr<wmi::ClassObject>*, size_t) {}

}  // namespace morvax
