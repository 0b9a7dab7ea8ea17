#pragma once

#include <memory>
#include <string>

#include "wmi/Wmi.h"
#include "wmi/sim/SimEnumerator.h"
#include "wmi/sim/SimWorldLoader.h"
#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

// A connection to one namespace of one host of the world. Each query takes the world as it is
// then (read again if its file changed), so a host that went away or a fault that came since
// shows at the next query, as a lost connection would. Made on one thread and used on another.
class SimServices : public Services {
  public:
    SimServices(std::shared_ptr<SimWorldLoader> loader, std::u16string server,
                std::u16string nameSpace);

    HRESULT execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) override;
    HRESULT execNotificationQuery(const std::u16string& wql,
                                  std::unique_ptr<Enumerator>& out) override;
    // A class by name, with null values.
    HRESULT getObject(const std::u16string& path, std::shared_ptr<ClassObject>& out) override;
    // The declared classes and, as abstract ones, the superclasses they name without declaring
    // them. System classes (__Event and its kin) are left out.
    HRESULT createClassEnum(std::unique_ptr<Enumerator>& out) override;

  private:
    struct Prepared {
        std::shared_ptr<const SimWorld> world;
        const SimHost* host = nullptr;
        const SimNamespace* nameSpace = nullptr;
        std::shared_ptr<const WqlQuery> query;
        std::shared_ptr<const SimClass> cls;
    };

    // The world as it is now, and the host and namespace of this connection in it.
    HRESULT locate(Prepared& out);
    // Everything both calls check, in the order a real provider meets it.
    HRESULT prepare(const std::u16string& wql, Prepared& out);
    std::vector<SimEnumerator::Segment> segments(const Prepared& p) const;
    void eventLogSegments(const Prepared& p, std::vector<SimEnumerator::Segment>& out) const;

    std::shared_ptr<SimWorldLoader> loader_;
    std::u16string server_;
    std::u16string nameSpace_;
};

}  // namespace morvax::wmi
