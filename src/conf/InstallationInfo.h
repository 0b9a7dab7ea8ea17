#pragma once

#include <cstdint>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"

namespace morvax {

// What the installation tree looks like to this process: the home directory that the
// environment names, the paths derived from it, and the expansion of variables in
// configuration values. One object serves the process (instance()); it is filled at start-up
// and only read afterwards, without a lock.
class InstallationInfo {
  public:
    // Filters read by the conf layer; the collector leaves them empty.
    struct StartupOptions {
        std::vector<Str> omittedApplications;
        std::vector<Str> omittedUsers;
        Str userFilter;
    };

    // The process's object, built on first use by whichever thread comes first and never
    // destroyed.
    static InstallationInfo& instance();

    // A fresh object with the start values (tests build their own; the process uses
    // instance()). Reads MORVAX_SERVER_NAME.
    InstallationInfo();

    // Fills the paths from MORVAX_HOME, LD_LIBRARY_PATH, MORVAX_DB, MORVAX_ETC, OPENSSL_CONF and
    // OPENSSL_MODULES. A value is made absolute and clean, and written back to the environment
    // when that changed its text, so that children and later expansions see the same path.
    // Absent or empty variables leave their field alone. Safe to call again: nothing changes
    // unless the environment did.
    void readEnvironment();

    // Prints "MORVAX_HOME must be set.  Stopping.\n" on standard error and exits with -1 when
    // home() is empty; otherwise returns true. The start-up code calls it after
    // readEnvironment().
    bool requireHome() const;

    const Pathname& home() const { return home_; }
    // MORVAX_DB, or <home>/var/lib/morvax when the variable is unset.
    const Pathname& dbPath() const { return dbPath_; }
    const Pathname& libraryPath() const { return libraryPath_; }
    const Str& componentName() const { return componentName_; }
    // The configuration root: MORVAX_ETC when set (or in the server process), else <home>/etc.
    Pathname etcPath() const;
    // MORVAX_ETC as read, empty when unset.
    const Pathname& configuredEtcPath() const { return etcPath_; }
    const Str& instanceDirectory() const { return instanceDirectory_; }
    uint32_t managementPort() const { return managementPort_; }
    // Four flag bytes, index 0 to 3.
    uint8_t flag(size_t index) const { return index < 4 ? flags_[index] : 0; }
    int32_t runContext() const { return runContext_; }
    // True unless the interpreter files exist below home(). Nothing in the collector acts on it.
    bool noPython() const { return noPython_ != 0; }
    const WStr& serverName() const { return serverName_; }
    const Pathname& opensslConf() const { return opensslConf_; }
    const Pathname& opensslModules() const { return opensslModules_; }
    const StartupOptions& startupOptions() const { return startupOptions_; }

    // <home>/var/log/morvax: log files and crash reports.
    Pathname logDirectory() const;
    // <home>/var/run/morvax.
    Pathname runDirectory() const;

    // Expands $NAME references from the environment in one left-to-right pass. A name is the
    // longest run of ASCII letters, digits and '_'; "$MORVAX_HOME/etc" (either separator, then
    // the end or a separator) reads as "$MORVAX_ETC" so that values written against the home
    // follow a moved configuration root. Unknown names and a '$' without a name stay as
    // written; replaced text is not scanned again.
    Str expandVariables(StrSegment text) const;

  private:
    // Reads one variable into `field`; see readEnvironment().
    static bool readPathVariable(const char* name, Pathname& field);

    // Platform parts: the wide environment.
    // False when the variable does not exist; an existing empty one gives true and "".
    static bool getEnvironment(const char* name, WStr& value);
    static void setEnvironment(const char* name, const WStr& value);

    Pathname home_;
    Pathname dbPath_;
    Pathname libraryPath_;
    Str componentName_{"morvaxd"};
    Pathname etcPath_;
    Str instanceDirectory_{"myinstall"};
    uint32_t managementPort_ = 8089;
    uint8_t flags_[4] = {0, 1, 0, 0};
    int32_t runContext_ = 5;
    uint8_t noPython_ = 1;
    WStr serverName_;
    Pathname opensslConf_;
    Pathname opensslModules_;
    StartupOptions startupOptions_;
    // dbPath_ holds the default below the home, not a value from the environment.
    bool dbPathIsDefault_ = false;
};

}  // namespace morvax
