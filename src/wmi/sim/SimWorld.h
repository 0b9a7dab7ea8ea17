#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "wmi/sim/SimHost.h"
#include "wmi/sim/SimJsonlFile.h"

namespace morvax::wmi {

// One reading of the world: hosts with their namespaces, classes, event logs and faults.
// Read-only once made, so queries keep the world they started with while a newer one replaces
// it for later ones.
class SimWorld {
  public:
    SimWorld() = default;

    // The host a server name of a namespace path names: the local machine for an empty name,
    // ".", "localhost", "127.0.0.1" and "[::1]"; any other without regard to case. Null when
    // the world lacks it (the local machine always exists).
    const SimHost* findHost(const std::u16string& server) const;
    SimHost* findHost(const std::u16string& server);
    // The local machine, made when missing.
    SimHost& localHost();
    // A host of that key, made when it is new; null when the key names an existing one.
    SimHost* addHost(const std::u16string& key);

    const std::vector<std::unique_ptr<SimHost>>& hosts() const { return hosts_; }

    // The file of extrinsic and other events, shared by every reading of one world directory;
    // null without one.
    const std::shared_ptr<SimJsonlFile>& events() const { return events_; }
    void setEvents(std::shared_ptr<SimJsonlFile> events) { events_ = std::move(events); }

    static bool isLocalServer(const std::u16string& server);
    // "\\server\root\cimv2" (either slash) gives "server" and "root\cimv2"; a path without a
    // server gives "".
    static void splitPath(const std::u16string& path, std::u16string& server,
                          std::u16string& nameSpace);

  private:
    std::vector<std::unique_ptr<SimHost>> hosts_;
    std::shared_ptr<SimJsonlFile> events_;
};

}  // namespace morvax::wmi
