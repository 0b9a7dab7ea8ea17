#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClassObject.h"
#include "wmi/sim/SimWorld.h"
#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

// The events of a notification query: an __InstanceCreationEvent for each event-log record
// appended after the query began, and the lines appended to the world's events file that are
// for this host and namespace. Each is tested against the query's class and WHERE; GROUP WITHIN
// gathers them into __AggregateEvent objects. next() answers WBEM_S_TIMEDOUT while nothing has
// come, and never ends. Belongs to one thread.
class SimEventEnumerator : public Enumerator {
  public:
    SimEventEnumerator(std::shared_ptr<const WqlQuery> query,
                       std::shared_ptr<const SimClass> eventClass,
                       std::shared_ptr<const SimWorld> world, const SimHost& host,
                       const SimNamespace& nameSpace);

    HRESULT next(long timeoutMs, unsigned count,
                 std::vector<std::shared_ptr<ClassObject>>& out) override;

  private:
    struct Watch {
        uint64_t generation = 0;
        size_t count = 0;
    };
    struct Group {
        std::vector<std::u32string> key;
        uint32_t count = 0;
        std::shared_ptr<SimClassObject> representative;
    };

    void poll();
    void pollLogs();
    void pollEvents();
    void eventFromLine(const Str& line);
    // Tests an event and queues it (or its group).
    void consider(std::shared_ptr<const SimInstance> event);
    // Delivers the groups once their window has passed.
    void flushGroups();
    std::shared_ptr<const SimObjectShape> shapeFor(const std::shared_ptr<const SimClass>& cls);

    std::shared_ptr<const WqlQuery> query_;
    std::shared_ptr<const SimClass> eventClass_;
    std::shared_ptr<const SimWorld> world_;
    const SimHost& host_;
    const SimNamespace& nameSpace_;
    SimHost::Faults faults_;
    uint64_t startMs_;

    std::vector<std::pair<std::shared_ptr<SimEventLog>, Watch>> logs_;
    Watch eventsWatch_;
    std::vector<std::shared_ptr<const SimObjectShape>> shapes_;
    std::deque<std::shared_ptr<ClassObject>> ready_;
    std::vector<Group> groups_;
    uint64_t groupStartMs_ = 0;
    uint64_t delivered_ = 0;
    HRESULT failure_ = WBEM_S_NO_ERROR;
};

}  // namespace morvax::wmi
