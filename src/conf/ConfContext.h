#pragma once

#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

class ConfSystem;

// The argument of every read of configuration: which root, and as whom. The collector reads as
// nobody, with no application: everything empty.
class ConfContext {
  public:
    // The installation's root (<home>/etc, or MORVAX_ETC).
    ConfContext();
    // Another root; empty means the installation's.
    explicit ConfContext(Pathname etcRoot);

    const Pathname& etcRoot() const { return etcRoot_; }
    // The root a read uses: `etcRoot`, else the installation's.
    Pathname effectiveEtc() const;
    // <etc>/apps unless overridden.
    Pathname appsDirectory() const;
    // The overriding directory, else <etc>/slave-apps if it can be opened, else <etc>/peer-apps.
    Pathname deployedAppsDirectory() const;

    void setAppsRoot(Pathname appsRoot) { appsRoot_ = std::move(appsRoot); }
    void setSlaveAppsRoot(Pathname root) { slaveAppsRoot_ = std::move(root); }
    void setUser(Str userName, Str userApp) {
        userName_ = std::move(userName);
        userApp_ = std::move(userApp);
    }
    void setAppName(Str appName) { appName_ = std::move(appName); }
    const Str& userName() const { return userName_; }
    const Str& userApp() const { return userApp_; }
    const Str& appName() const { return appName_; }
    bool addBuiltinEncryptFields() const { return addBuiltinEncryptFields_; }

    // The shared system of this root, set up on first use.
    ConfSystem& system() const;
    bool isBound() const { return system_ != nullptr; }

  private:
    Pathname etcRoot_;
    Pathname slaveAppsRoot_;
    Pathname appsRoot_;
    bool addBuiltinEncryptFields_ = true;
    mutable ConfSystem* system_ = nullptr;
    Str userName_;
    Str userApp_;
    Str appName_;
};

}  // namespace morvax
