#include "input/NamespaceServer.h"

#include "input/WMILogger.h"
#include "net/HostNames.h"

namespace morvax {

Str serverFromNamespace(StrSegment ns) {
    if (ns.size() < 2 || ns[0] != '\\' || ns[1] != '\\') {
        return Str();
    }
    const std::string_view path = ns.view();
    const size_t end = path.find('\\', 2);
    Str server;
    if (end == std::string_view::npos) {
        const Str text(ns);
        wmiLogger().error("Invalid namespace (\"%s\") given.", text.c_str());
        server.assign(path.data() + 2, path.size() - 2);
    } else {
        server.assign(path.data() + 2, end - 2);
        if (server == ".") {
            return Str();
        }
    }
    if (!server.empty() && isLocalHostName(server)) {
        return Str();
    }
    return server;
}

bool isLocalHostName(StrSegment name) {
    Str lower(name);
    lower.toLower();
    return lower == "localhost" || lower == "127.0.0.1" ||
           HostNames::isIPv6Loopback(lower.data(), lower.size());
}

}  // namespace morvax
