#include "wmi/sim/SimEventEnumerator.h"

#include <nlohmann/json.hpp>

#include "util/time/MonotonicTime.h"
#include "util/time/Sleep.h"
#include "util/time/Timeval.h"
#include "wmi/sim/SimBuiltins.h"
#include "wmi/sim/SimJsonReader.h"
#include "wmi/sim/SimReport.h"
#include "wmi/wql/WqlEvaluator.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

constexpr uint64_t kWaitStepMs = 10;

Variant timeCreated() {
    Str decimal;
    decimal.appendFormat("%llu", static_cast<unsigned long long>(Timeval::now().ticks()));
    return Variant::fromString(decimal.toWide());
}

std::u32string groupKey(const Variant& value) {
    if (value.vt == VT_NULL || value.vt == VT_EMPTY) {
        return std::u32string(1, U'\0');
    }
    Variant text;
    if (failed(changeType(text, value, VT_BSTR))) {
        return std::u32string(1, U'\1');
    }
    return WqlText::fold(text.str);
}

}  // namespace

SimEventEnumerator::SimEventEnumerator(std::shared_ptr<const WqlQuery> query,
                                       std::shared_ptr<const SimClass> eventClass,
                                       std::shared_ptr<const SimWorld> world, const SimHost& host,
                                       const SimNamespace& nameSpace)
    : query_(std::move(query)),
      eventClass_(std::move(eventClass)),
      world_(std::move(world)),
      host_(host),
      nameSpace_(nameSpace),
      faults_(host.faults()),
      startMs_(MonotonicTime::now()) {
    // Record events are creation events of Win32_NTLogEvent instances, which live in
    // root\cimv2; whatever the logs hold now is the past.
    if (SimBuiltins::instanceCreationEvent()->isA(eventClass_->name()) &&
        nameSpace_.find(SimBuiltins::ntLogEvent()->name()) == SimBuiltins::ntLogEvent()) {
        for (const auto& log : host_.eventLogs()) {
            Watch watch;
            log->refresh();
            log->position(watch.generation, watch.count);
            logs_.emplace_back(log, watch);
        }
    }
    if (const auto& events = world_->events()) {
        events->refresh();
        events->position(eventsWatch_.generation, eventsWatch_.count);
    }
}

std::shared_ptr<const SimObjectShape> SimEventEnumerator::shapeFor(
    const std::shared_ptr<const SimClass>& cls) {
    for (const auto& shape : shapes_) {
        if (shape->simClass() == cls) {
            return shape;
        }
    }
    // Aggregates are shown whole; the select list speaks of the events inside them.
    const bool aggregate = cls == SimBuiltins::aggregateEvent();
    auto shape = std::make_shared<const SimObjectShape>(
        cls, aggregate ? WqlProjection() : WqlProjection(query_->selectList()), nameSpace_.name());
    shapes_.push_back(shape);
    return shape;
}

void SimEventEnumerator::consider(std::shared_ptr<const SimInstance> event) {
    if (!event->simClass()->isA(eventClass_->name())) {
        return;
    }
    auto object = std::make_shared<SimClassObject>(shapeFor(event->simClass()), std::move(event));
    if (!WqlEvaluator::matches(query_->where(), *object)) {
        return;
    }
    if (!query_->hasGroup()) {
        ready_.push_back(std::move(object));
        return;
    }
    std::vector<std::u32string> key;
    for (const QualifiedName& by : query_->groupBy()) {
        Variant value;
        key.push_back(object->property(by.names, value) ? groupKey(value) : std::u32string());
    }
    if (groups_.empty()) {
        groupStartMs_ = MonotonicTime::now();
    }
    for (Group& group : groups_) {
        if (group.key == key) {
            ++group.count;
            return;
        }
    }
    groups_.push_back(Group{std::move(key), 1, std::move(object)});
}

void SimEventEnumerator::flushGroups() {
    if (groups_.empty()) {
        return;
    }
    const uint64_t windowMs = static_cast<uint64_t>(query_->groupWithinSeconds() * 1000);
    if (MonotonicTime::now() - groupStartMs_ < windowMs) {
        return;
    }
    const auto& cls = SimBuiltins::aggregateEvent();
    for (Group& group : groups_) {
        std::vector<Variant> values(cls->properties().size(), Variant::null());
        values[cls->find(u"NumberOfEvents")] = Variant::fromInt(VT_I4, group.count);
        values[cls->find(u"Representative")] = Variant::fromObject(group.representative);
        auto aggregate = std::make_shared<SimClassObject>(
            shapeFor(cls), std::make_shared<const SimInstance>(cls, std::move(values)));
        if (WqlEvaluator::matches(query_->having(), *aggregate)) {
            ready_.push_back(std::move(aggregate));
        }
    }
    groups_.clear();
}

void SimEventEnumerator::pollLogs() {
    const auto& cls = SimBuiltins::instanceCreationEvent();
    for (auto& [log, watch] : logs_) {
        const uint64_t generation = log->refresh();
        if (generation != watch.generation) {
            // Cleared since: what it holds now came after the query began.
            watch.generation = generation;
            watch.count = 0;
        }
        std::vector<std::shared_ptr<const SimInstance>> records;
        if (!log->recordsFrom(watch.generation, watch.count, records)) {
            continue;  // cleared in between; the next poll sees the new generation
        }
        watch.count += records.size();
        for (auto& record : records) {
            std::vector<Variant> values(cls->properties().size(), Variant::null());
            values[cls->find(u"TargetInstance")] =
                Variant::fromObject(SimClassObject::whole(std::move(record), nameSpace_.name()));
            values[cls->find(u"TIME_CREATED")] = timeCreated();
            consider(std::make_shared<const SimInstance>(cls, std::move(values)));
        }
    }
}

void SimEventEnumerator::eventFromLine(const Str& line) {
    using Json = SimJsonReader::Json;
    const Json json = Json::parse(line.data(), line.data() + line.size(), nullptr, false);
    if (!json.is_object()) {
        return;
    }
    std::u16string hostName = u".", nameSpace = u"root\\cimv2", className;
    for (auto it = json.begin(); it != json.end(); ++it) {
        if (!it.value().is_string()) {
            continue;
        }
        const std::u16string key = SimJsonReader::wide(it.key());
        const std::u16string value = SimJsonReader::wide(it.value().get<std::string>());
        if (WqlText::isWord(key, "host")) {
            hostName = value;
        } else if (WqlText::isWord(key, "namespace")) {
            nameSpace = value;
        } else if (WqlText::isWord(key, "class")) {
            className = value;
        }
    }
    if (className.empty()) {
        className = u"__InstanceCreationEvent";
    }
    if (world_->findHost(hostName) != &host_ ||
        !WqlText::equalNoCase(SimHost::normalizeNamespace(nameSpace), nameSpace_.name())) {
        return;
    }
    auto cls = nameSpace_.find(className);
    if (!cls || !cls->isA(eventClass_->name())) {
        return;
    }
    SimJsonReader reader(&nameSpace_, nameSpace_.name());
    std::vector<Str> problems;
    std::vector<Variant> values =
        reader.values(*cls, json, problems, {"host", "namespace", "class"});
    for (const Str& problem : problems) {
        SimReport::inFile(world_->events()->path(), problem.segment());
    }
    const int created = cls->find(u"TIME_CREATED");
    if (created >= 0 && values[created].vt == VT_NULL) {
        values[created] = timeCreated();
    }
    consider(std::make_shared<const SimInstance>(cls, std::move(values)));
}

void SimEventEnumerator::pollEvents() {
    const auto& events = world_->events();
    if (!events) {
        return;
    }
    const uint64_t generation = events->refresh();
    if (generation != eventsWatch_.generation) {
        eventsWatch_ = Watch{generation, 0};
    }
    std::vector<SimJsonlFile::Line> lines;
    if (!events->linesFrom(eventsWatch_.generation, eventsWatch_.count, lines)) {
        return;
    }
    eventsWatch_.count += lines.size();
    for (const SimJsonlFile::Line& line : lines) {
        eventFromLine(line.text);
    }
}

void SimEventEnumerator::poll() {
    pollLogs();
    pollEvents();
    flushGroups();
}

HRESULT SimEventEnumerator::next(long timeoutMs, unsigned count,
                                 std::vector<std::shared_ptr<ClassObject>>& out) {
    if (failed(failure_)) {
        return failure_;
    }
    if (faults_.nextDelayMs > 0 && MonotonicTime::now() - startMs_ < faults_.nextDelayMs) {
        return WBEM_S_TIMEDOUT;
    }
    if (faults_.nextAfter && delivered_ >= faults_.nextAfterCount) {
        failure_ = faults_.nextAfterResult;
        return failure_;
    }
    poll();
    if (timeoutMs != 0 && ready_.empty()) {
        // A negative time-out waits for ever, as WBEM_INFINITE does.
        const uint64_t deadline = MonotonicTime::now() + static_cast<uint64_t>(timeoutMs);
        while (ready_.empty() && (timeoutMs < 0 || MonotonicTime::now() < deadline)) {
            sleep(kWaitStepMs);
            poll();
        }
    }
    uint64_t limit = count;
    if (faults_.nextAfter) {
        limit = std::min<uint64_t>(limit, faults_.nextAfterCount - delivered_);
    }
    uint64_t produced = 0;
    while (produced < limit && !ready_.empty()) {
        out.push_back(std::move(ready_.front()));
        ready_.pop_front();
        ++produced;
    }
    delivered_ += produced;
    return produced == count && count > 0 ? WBEM_S_NO_ERROR : WBEM_S_TIMEDOUT;
}

}  // namespace morvax::wmi
