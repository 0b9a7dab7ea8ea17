#include "conf/InstallationInfo.h"

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace morvax {

namespace {

bool isNameChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool isSlash(char c) {
    return c == '/' || c == '\\';
}

// "/etc" or "\etc" at `at`, followed by the end or a separator.
bool isEtcSuffix(const char* text, size_t length, size_t at) {
    if (length - at < 4 || !isSlash(text[at]) || text[at + 1] != 'e' || text[at + 2] != 't' ||
        text[at + 3] != 'c') {
        return false;
    }
    return at + 4 == length || isSlash(text[at + 4]);
}

Pathname below(const Pathname& base, std::initializer_list<const char*> names) {
    Pathname path = base;
    for (const char* name : names) {
        path = Pathname::join(path, name);
    }
    return path;
}

}  // namespace

InstallationInfo& InstallationInfo::instance() {
    // Never destroyed: code that runs during exit may still ask for paths.
    static InstallationInfo* const info = new InstallationInfo();
    return *info;
}

InstallationInfo::InstallationInfo() {
    WStr name;
    if (getEnvironment("MORVAX_SERVER_NAME", name) && !name.empty()) {
        serverName_ = name;
    } else {
        serverName_ = u"Morvaxd";
    }
}

bool InstallationInfo::readPathVariable(const char* name, Pathname& field) {
    WStr value;
    if (!getEnvironment(name, value) || value.empty()) {
        return false;
    }
    field = Pathname::absoluteClean(value);
    if (field.wide() != value) {
        setEnvironment(name, field.wide());
    }
    return true;
}

void InstallationInfo::readEnvironment() {
    readPathVariable("MORVAX_HOME", home_);
    readPathVariable("LD_LIBRARY_PATH", libraryPath_);
    if (readPathVariable("MORVAX_DB", dbPath_)) {
        dbPathIsDefault_ = false;
    } else if ((dbPath_.empty() || dbPathIsDefault_) && !home_.empty()) {
        dbPath_ = below(home_, {"var", "lib", "morvax"});
        dbPathIsDefault_ = true;
    }
    readPathVariable("MORVAX_ETC", etcPath_);
    readPathVariable("OPENSSL_CONF", opensslConf_);
    readPathVariable("OPENSSL_MODULES", opensslModules_);

    bool interpreter =
        !home_.empty() && below(home_, {"bin", "Python3.13.exe"}).exists() != Pathname::NOT_FOUND &&
        below(home_, {"Python-3.13", "Lib", "site-packages"}).exists() != Pathname::NOT_FOUND;
    noPython_ = interpreter ? 0 : 1;
}

bool InstallationInfo::requireHome() const {
    if (home_.empty()) {
        // No log exists yet; the user must see this as it stands.
        std::fputs("MORVAX_HOME must be set.  Stopping.\n", stderr);
        std::fflush(stderr);
        std::exit(-1);
    }
    return true;
}

Pathname InstallationInfo::etcPath() const {
    if (!etcPath_.empty() || runContext_ == 1) {
        return etcPath_;
    }
    return Pathname::join(home_, "etc");
}

Pathname InstallationInfo::logDirectory() const {
    return below(home_, {"var", "log", "morvax"});
}

Pathname InstallationInfo::runDirectory() const {
    return below(home_, {"var", "run", "morvax"});
}

Str InstallationInfo::expandVariables(StrSegment text) const {
    const char* p = text.data();
    size_t n = text.size();
    Str out;
    out.reserve(n);
    size_t i = 0;
    while (i < n) {
        size_t dollar = i;
        while (dollar < n && p[dollar] != '$') {
            ++dollar;
        }
        out.append(p + i, dollar - i);
        if (dollar == n) {
            break;
        }
        size_t nameStart = dollar + 1;
        size_t nameEnd = nameStart;
        while (nameEnd < n && isNameChar(p[nameEnd])) {
            ++nameEnd;
        }
        i = nameEnd;
        if (nameEnd == nameStart) {
            out.append('$');
            continue;
        }
        Str name(p + nameStart, nameEnd - nameStart);
        if (name == "MORVAX_HOME" && isEtcSuffix(p, n, nameEnd)) {
            name = "MORVAX_ETC";
            i = nameEnd + 4;
        }
        WStr value;
        if (getEnvironment(name.c_str(), value)) {
            out.appendWide(value);
        } else {
            out.append('$');
            out.append(name);
        }
    }
    return out;
}

}  // namespace morvax
