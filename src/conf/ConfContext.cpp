#include "conf/ConfContext.h"

#include "conf/ConfSystem.h"
#include "conf/InstallationInfo.h"

namespace morvax {

ConfContext::ConfContext() = default;

ConfContext::ConfContext(Pathname etcRoot) : etcRoot_(std::move(etcRoot)) {}

Pathname ConfContext::effectiveEtc() const {
    return etcRoot_.empty() ? InstallationInfo::instance().etcPath() : etcRoot_;
}

Pathname ConfContext::appsDirectory() const {
    return appsRoot_.empty() ? Pathname::join(effectiveEtc(), "apps") : appsRoot_;
}

Pathname ConfContext::deployedAppsDirectory() const {
    if (!slaveAppsRoot_.empty()) {
        return slaveAppsRoot_;
    }
    const Pathname slaveApps = Pathname::join(effectiveEtc(), "slave-apps");
    if (slaveApps.isDirectory()) {
        return slaveApps;
    }
    return Pathname::join(effectiveEtc(), "peer-apps");
}

ConfSystem& ConfContext::system() const {
    if (system_ == nullptr) {
        system_ = &ConfSystem::forContext(*this);
    }
    return *system_;
}

}  // namespace morvax
