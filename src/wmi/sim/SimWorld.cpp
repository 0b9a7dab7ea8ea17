#include "wmi/sim/SimWorld.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

bool SimWorld::isLocalServer(const std::u16string& server) {
    return server.empty() || server == u"." || WqlText::isWord(server, "localhost") ||
           server == u"127.0.0.1" || server == u"[::1]" || server == u"::1";
}

void SimWorld::splitPath(const std::u16string& path, std::u16string& server,
                         std::u16string& nameSpace) {
    auto slash = [](char16_t c) { return c == u'\\' || c == u'/'; };
    server.clear();
    if (path.size() >= 2 && slash(path[0]) && slash(path[1])) {
        size_t end = 2;
        while (end < path.size() && !slash(path[end])) {
            ++end;
        }
        server = path.substr(2, end - 2);
        nameSpace = end < path.size() ? path.substr(end + 1) : std::u16string();
        return;
    }
    nameSpace = path;
}

const SimHost* SimWorld::findHost(const std::u16string& server) const {
    const bool local = isLocalServer(server);
    for (const auto& host : hosts_) {
        if (local ? isLocalServer(host->name()) : WqlText::equalNoCase(host->name(), server)) {
            return host.get();
        }
    }
    return nullptr;
}

SimHost* SimWorld::findHost(const std::u16string& server) {
    return const_cast<SimHost*>(static_cast<const SimWorld*>(this)->findHost(server));
}

SimHost& SimWorld::localHost() {
    if (SimHost* host = findHost(u".")) {
        return *host;
    }
    return *addHost(u".");
}

SimHost* SimWorld::addHost(const std::u16string& key) {
    if (findHost(key)) {
        return nullptr;
    }
    hosts_.push_back(std::make_unique<SimHost>(key));
    return hosts_.back().get();
}

}  // namespace morvax::wmi
