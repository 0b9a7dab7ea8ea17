#include "wmi/sim/SimWorldLoader.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "util/thread/ScopedLock.h"
#include "util/time/MonotonicTime.h"
#include "wmi/sim/SimBuiltins.h"
#include "wmi/sim/SimHostWorld.h"
#include "wmi/sim/SimJsonReader.h"
#include "wmi/sim/SimReport.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

using Json = nlohmann::ordered_json;

constexpr uint64_t kUnreadableReportMs = 1000;

std::u16string wide(const std::string& utf8) {
    return SimJsonReader::wide(utf8);
}

bool keyIs(const std::string& key, const char* name) {
    return WqlText::isWord(wide(key), name);
}

// A member by name without regard to case; null when absent.
const Json* member(const Json& object, const char* name) {
    if (!object.is_object()) {
        return nullptr;
    }
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (keyIs(it.key(), name)) {
            return &it.value();
        }
    }
    return nullptr;
}

bool readHresult(const Json& value, HRESULT& out) {
    if (value.is_number_integer() || value.is_number_unsigned()) {
        const int64_t v = value.get<int64_t>();
        if (v < INT32_MIN || v > static_cast<int64_t>(UINT32_MAX)) {
            return false;
        }
        out = static_cast<HRESULT>(static_cast<uint32_t>(v));
        return true;
    }
    if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        char* end = nullptr;
        const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
        if (text.empty() || *end != '\0' || v > UINT32_MAX) {
            return false;
        }
        out = static_cast<HRESULT>(static_cast<uint32_t>(v));
        return true;
    }
    return false;
}

constexpr uint64_t kMaxRecordNumber = UINT32_MAX;

// A name that WMI could not have: the whole world is refused, since such a name would reach the
// event stream as it stands (a line end in a property name forges an event).
struct RefusedName {
    Str message;
};

// A namespace path: names joined by backslashes.
bool isNamespacePath(const std::u16string& path) {
    size_t start = 0;
    for (;;) {
        const size_t end = path.find(u'\\', start);
        if (!WqlText::isName(path.substr(start, end - start))) {
            return false;
        }
        if (end == std::u16string::npos) {
            return true;
        }
        start = end + 1;
    }
}

// The numbers of `text` that no double holds (1e400) become null, in place and of the same
// length, so that one bad value costs that value alone and line numbers stay. Returns the byte
// offsets and texts of the numbers so replaced.
std::vector<std::pair<size_t, std::string>> nullOutOfRangeNumbers(std::string& text) {
    std::vector<std::pair<size_t, std::string>> replaced;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
            continue;
        }
        if (c != '-' && (c < '0' || c > '9')) {
            continue;
        }
        size_t end = i + 1;
        while (end < text.size() && std::strchr("0123456789.eE+-", text[end]) != nullptr) {
            ++end;
        }
        const std::string number = text.substr(i, end - i);
        const double value = std::strtod(number.c_str(), nullptr);
        if (!std::isfinite(value)) {
            // Never shorter than "null": a literal beyond the range has at least five bytes.
            text.replace(i, end - i, "null" + std::string(end - i - 4, ' '));
            replaced.emplace_back(i, number);
        }
        i = end - 1;
    }
    return replaced;
}

bool readCount(const Json& value, uint64_t& out) {
    if (value.is_number_unsigned() || (value.is_number_integer() && value.get<int64_t>() >= 0)) {
        out = value.get<uint64_t>();
        return true;
    }
    return false;
}

// Reads one world file into a world, reporting what it leaves out.
class WorldReader {
  public:
    using LogMaker = std::function<std::shared_ptr<SimEventLog>(SimEventLog::Setup)>;

    WorldReader(std::filesystem::path file, std::filesystem::path directory, LogMaker makeLog)
        : file_(std::move(file)), directory_(std::move(directory)), makeLog_(std::move(makeLog)) {}

    void read(const Json& root, SimWorld& world) {
        if (!root.is_object()) {
            report("", "the world must be a JSON object; the world is empty");
            return;
        }
        checkKeys(root, {"include_host", "hosts"}, "");
        if (const Json* hosts = member(root, "hosts")) {
            if (!hosts->is_object()) {
                report("", "\"hosts\" must be an object");
            } else {
                for (auto it = hosts->begin(); it != hosts->end(); ++it) {
                    readHost(world, it.key(), it.value());
                }
            }
        }
        world.localHost();
        if (const Json* include = member(root, "include_host")) {
            if (!include->is_boolean()) {
                report("", "\"include_host\" must be true or false");
            } else if (include->get<bool>()) {
                SimHostWorld::addTo(world.localHost());
            }
        }
    }

  private:
    void report(const Str& where, const char* what) {
        Str text = where;
        if (!text.empty()) {
            text.append(": ");
        }
        text.append(what);
        SimReport::inFile(file_, text.segment());
    }
    void report(const Str& where, const Str& what) { report(where, what.c_str()); }

    void checkKeys(const Json& object, std::initializer_list<const char*> known, const Str& where) {
        for (auto it = object.begin(); it != object.end(); ++it) {
            bool found = false;
            for (const char* name : known) {
                found = found || keyIs(it.key(), name);
            }
            if (!found) {
                report(where, Str::printf("unknown key \"%s\" ignored", it.key().c_str()));
            }
        }
    }

    void readHost(SimWorld& world, const std::string& key, const Json& body) {
        const Str where = Str::printf("host \"%s\"", key.c_str());
        if (!body.is_object()) {
            report(where, "a host must be an object; left out");
            return;
        }
        SimHost* host = world.addHost(wide(key));
        if (!host) {
            report(where, "names a host already given; left out");
            return;
        }
        checkKeys(body, {"namespaces", "eventlogs", "faults", "connect"}, where);
        if (const Json* namespaces = member(body, "namespaces")) {
            if (!namespaces->is_object()) {
                report(where, "\"namespaces\" must be an object");
            } else {
                for (auto it = namespaces->begin(); it != namespaces->end(); ++it) {
                    readNamespace(*host, it.key(), it.value(), where);
                }
            }
        }
        if (const Json* logs = member(body, "eventlogs")) {
            if (!logs->is_object()) {
                report(where, "\"eventlogs\" must be an object");
            } else {
                for (auto it = logs->begin(); it != logs->end(); ++it) {
                    readEventLog(*host, key, it.key(), it.value(), where);
                }
            }
        }
        if (const Json* connect = member(body, "connect")) {
            readFaults(*connect, host->faults(), where + ", connect", true);
        }
        if (const Json* faults = member(body, "faults")) {
            readFaults(*faults, host->faults(), where + ", faults", false);
        }
    }

    void readFaults(const Json& body, SimHost::Faults& faults, const Str& where, bool connect) {
        if (!body.is_object()) {
            report(where, "must be an object");
            return;
        }
        for (auto it = body.begin(); it != body.end(); ++it) {
            const std::string& key = it.key();
            const Json& value = it.value();
            bool ok = true;
            if (connect && keyIs(key, "hresult")) {
                ok = readHresult(value, faults.connect);
            } else if (connect && keyIs(key, "delay_ms")) {
                ok = readCount(value, faults.connectDelayMs);
            } else if (!connect && keyIs(key, "connect")) {
                readFaults(value, faults, where + ", connect", true);
            } else if (!connect && keyIs(key, "exec_query")) {
                ok = readHresult(value, faults.execQuery);
            } else if (!connect && keyIs(key, "next_delay_ms")) {
                ok = readCount(value, faults.nextDelayMs);
            } else if (!connect && keyIs(key, "next_after")) {
                const Json* count = member(value, "count");
                const Json* hresult = member(value, "hresult");
                ok = count && hresult && readCount(*count, faults.nextAfterCount) &&
                     readHresult(*hresult, faults.nextAfterResult);
                faults.nextAfter = ok;
            } else {
                report(where, Str::printf("unknown key \"%s\" ignored", key.c_str()));
                continue;
            }
            if (!ok) {
                report(where, Str::printf("\"%s\" has a bad value %s; ignored", key.c_str(),
                                          value.dump().c_str()));
            }
        }
    }

    void readEventLog(SimHost& host, const std::string& hostKey, const std::string& name,
                      const Json& body, const Str& hostWhere) {
        const Str where = hostWhere + Str::printf(", event log \"%s\"", name.c_str());
        if (!body.is_object()) {
            report(where, "an event log must be an object; left out");
            return;
        }
        if (host.findEventLog(wide(name))) {
            report(where, "names a log already given; left out");
            return;
        }
        checkKeys(body, {"order", "synthetic"}, where);
        SimEventLog::Setup setup;
        setup.name = wide(name);
        if (const Json* order = member(body, "order")) {
            if (order->is_string() && keyIs(order->get<std::string>(), "ascending")) {
                setup.descending = false;
            } else if (!order->is_string() || !keyIs(order->get<std::string>(), "descending")) {
                report(where, "\"order\" must be \"ascending\" or \"descending\"");
            }
        }
        if (const Json* synthetic = member(body, "synthetic")) {
            if (!readCount(*synthetic, setup.synthetic)) {
                report(where, "\"synthetic\" must be a count");
            } else if (setup.synthetic > kMaxRecordNumber) {
                // Record numbers are 32 bits wide.
                report(where, "\"synthetic\" of an event log is at most 4294967295; left at 0");
                setup.synthetic = 0;
            }
        }
        setup.computerName = SimWorld::isLocalServer(wide(hostKey)) ? u"localhost" : wide(hostKey);
        setup.file = SimWorldLoader::eventLogFile(directory_, wide(hostKey), setup.name);
        host.addEventLog(makeLog_(std::move(setup)));
    }

    struct Declaration {
        std::u16string name;
        std::u16string superclass;
        const Json* body = nullptr;
        std::shared_ptr<SimClass> cls;
        int state = 0;  // 0 new, 1 being resolved, 2 done
    };

    // Refuses the world when `name` is not one WMI could have.
    void requireName(bool valid, const Str& where, const char* what, const std::string& name) {
        if (!valid) {
            Str text = where;
            text.appendFormat("%s%s \"%s\" is not a WMI name; the world is empty",
                              where.empty() ? "" : ": ", what, name.c_str());
            throw RefusedName{text};
        }
    }

    void readNamespace(SimHost& host, const std::string& name, const Json& body,
                       const Str& hostWhere) {
        const Str where = hostWhere + Str::printf(", namespace \"%s\"", name.c_str());
        requireName(isNamespacePath(wide(name)), hostWhere, "the namespace", name);
        if (!body.is_object()) {
            report(where, "a namespace must be an object; left out");
            return;
        }
        checkKeys(body, {"classes"}, where);
        SimNamespace& ns = host.addNamespace(wide(name));
        const Json* classes = member(body, "classes");
        if (!classes) {
            return;
        }
        if (!classes->is_object()) {
            report(where, "\"classes\" must be an object");
            return;
        }
        std::vector<Declaration> declarations;
        for (auto it = classes->begin(); it != classes->end(); ++it) {
            const Str classWhere = where + Str::printf(", class \"%s\"", it.key().c_str());
            if (!it.value().is_object()) {
                report(classWhere, "a class must be an object; left out");
                continue;
            }
            checkKeys(it.value(), {"superclass", "properties", "instances", "synthetic"},
                      classWhere);
            Declaration d;
            d.name = wide(it.key());
            requireName(WqlText::isName(d.name), where, "the class", it.key());
            d.body = &it.value();
            if (const Json* super = member(it.value(), "superclass")) {
                if (super->is_string()) {
                    d.superclass = wide(super->get<std::string>());
                    requireName(WqlText::isName(d.superclass), classWhere, "the superclass",
                                super->get<std::string>());
                } else if (!super->is_null()) {
                    report(classWhere, "\"superclass\" must be a class name");
                }
            }
            if (WqlText::equalNoCase(d.name, SimBuiltins::ntLogEvent()->name())) {
                report(classWhere, "Win32_NTLogEvent is built in; the declaration is ignored");
                continue;
            }
            declarations.push_back(std::move(d));
        }
        for (size_t i = 0; i < declarations.size(); ++i) {
            resolve(declarations, i, where);
        }
        for (Declaration& d : declarations) {
            ns.add(d.cls);
        }
        // Instances last: embedded objects may be of any class of the namespace.
        SimJsonReader reader(&ns, ns.name());
        for (Declaration& d : declarations) {
            readInstances(reader, ns, d, where);
        }
    }

    std::shared_ptr<SimClass> resolve(std::vector<Declaration>& all, size_t i, const Str& where) {
        Declaration& d = all[i];
        if (d.state == 2) {
            return d.cls;
        }
        const Str classWhere = where + Str::printf(", class \"%S\"", d.name.c_str());
        if (d.state == 1) {
            report(classWhere, "its superclasses form a cycle");
            return nullptr;
        }
        d.state = 1;
        std::shared_ptr<const SimClass> parent;
        for (size_t j = 0; j < all.size() && !d.superclass.empty(); ++j) {
            if (j != i && WqlText::equalNoCase(all[j].name, d.superclass)) {
                parent = resolve(all, j, where);
            }
        }
        // A class may derive from a system event class, and so be an event class itself.
        for (const auto& builtin : SimBuiltins::eventClasses()) {
            if (!parent && !d.superclass.empty() &&
                WqlText::equalNoCase(builtin->name(), d.superclass)) {
                parent = builtin;
            }
        }
        // `all` does not grow, so `d` is still valid here.
        d.cls = std::make_shared<SimClass>(d.name, d.superclass);
        if (parent) {
            std::vector<std::u16string> derivation = {d.name};
            derivation.insert(derivation.end(), parent->derivation().begin(),
                              parent->derivation().end());
            d.cls->setDerivation(std::move(derivation));
            for (const SimProperty& p : parent->properties()) {
                d.cls->addProperty(p.name, p.type);
            }
        }
        if (const Json* properties = member(*d.body, "properties")) {
            if (!properties->is_object()) {
                report(classWhere, "\"properties\" must be an object of names and types");
            } else {
                for (auto it = properties->begin(); it != properties->end(); ++it) {
                    requireName(WqlText::isName(wide(it.key())), classWhere, "the property",
                                it.key());
                    SimType type;
                    if (!it.value().is_string() ||
                        !SimTypes::parse(StrSegment(it.value().get_ref<const std::string&>()),
                                         type)) {
                        report(classWhere,
                               Str::printf("property \"%s\" has an unknown type %s; left out",
                                           it.key().c_str(), it.value().dump().c_str()));
                        continue;
                    }
                    d.cls->addProperty(wide(it.key()), type);
                }
            }
        }
        if (const Json* synthetic = member(*d.body, "synthetic")) {
            uint64_t count = 0;
            if (!readCount(*synthetic, count)) {
                report(classWhere, "\"synthetic\" must be a count");
            }
            d.cls->setSynthetic(count);
        }
        d.state = 2;
        return d.cls;
    }

    void readInstances(const SimJsonReader& reader, SimNamespace& ns, const Declaration& d,
                       const Str& where) {
        const Json* instances = member(*d.body, "instances");
        if (!instances) {
            return;
        }
        const Str classWhere = where + Str::printf(", class \"%S\"", d.name.c_str());
        if (!instances->is_array()) {
            report(classWhere, "\"instances\" must be an array of objects");
            return;
        }
        std::vector<std::shared_ptr<const SimInstance>> out;
        size_t index = 0;
        for (const Json& item : *instances) {
            const Str itemWhere = classWhere + Str::printf(", instance %zu", index++);
            if (!item.is_object()) {
                report(itemWhere, "an instance must be an object; left out");
                continue;
            }
            std::vector<Str> problems;
            out.push_back(reader.instance(d.cls, item, problems));
            for (const Str& problem : problems) {
                report(itemWhere, problem);
            }
        }
        ns.setInstances(*d.cls, std::move(out));
    }

    std::filesystem::path file_;
    std::filesystem::path directory_;
    LogMaker makeLog_;
};

// The namespace of event-log records wherever a host has logs or root\cimv2.
void addEventLogClass(SimHost& host) {
    SimNamespace* cimv2 = host.findNamespace(u"root\\cimv2");
    if (!cimv2 && host.eventLogs().empty()) {
        return;
    }
    if (!cimv2) {
        cimv2 = &host.addNamespace(u"root\\cimv2");
    }
    cimv2->add(SimBuiltins::ntLogEvent());
}

uint32_t lineOf(const std::string& content, size_t byte) {
    uint32_t line = 1;
    for (size_t i = 0; i < byte && i < content.size(); ++i) {
        line += content[i] == '\n';
    }
    return line;
}

}  // namespace

SimWorldLoader::SimWorldLoader(std::filesystem::path directory) : directory_(std::move(directory)) {
    if (!directory_.empty()) {
        file_ = directory_ / "world.json";
        events_ = std::make_shared<SimJsonlFile>(directory_ / "events.jsonl");
    }
    ScopedLock lock(mutex_);
    stamp_ = stamp();
    std::string text;
    if (file_.empty()) {
        world_ = load(nullptr);
    } else if (!stamp_.exists) {
        SimReport::inFile(file_, "does not exist; the world is empty");
        world_ = load(nullptr);
    } else if (readFile(text)) {
        world_ = load(&text);
    } else {
        SimReport::inFile(file_, "cannot be read; the world is empty until it can");
        unreadable_ = stamp_;
        unreadableReported_ = true;
        stamp_ = Stamp();  // so that the next check tries again
        world_ = load(nullptr);
    }
}

std::filesystem::path SimWorldLoader::eventLogFile(const std::filesystem::path& directory,
                                                   const std::u16string& hostKey,
                                                   const std::u16string& log) {
    return directory / "eventlogs" / std::filesystem::path(hostKey) /
           std::filesystem::path(log + u".jsonl");
}

SimWorldLoader::Stamp SimWorldLoader::stamp() const {
    Stamp out;
    if (file_.empty()) {
        return out;
    }
    std::error_code ec;
    out.size = std::filesystem::file_size(file_, ec);
    if (ec) {
        return Stamp();
    }
    out.time = std::filesystem::last_write_time(file_, ec);
    out.exists = true;
    return out;
}

void SimWorldLoader::refresh() {
    if (file_.empty()) {
        return;
    }
    ScopedLock lock(mutex_);
    const Stamp now = stamp();
    if (now == stamp_) {
        return;
    }
    std::string text;
    if (now.exists && !readFile(text)) {
        // Most likely held by its writer for a moment (Windows shares files less): keep the
        // world and try again at the next check. Only a lasting failure is worth a report.
        if (!(now == unreadable_)) {
            unreadable_ = now;
            unreadableSinceMs_ = MonotonicTime::now();
            unreadableReported_ = false;
        } else if (!unreadableReported_ &&
                   MonotonicTime::now() - unreadableSinceMs_ >= kUnreadableReportMs) {
            SimReport::inFile(file_, "cannot be read; the world stays as it was");
            unreadableReported_ = true;
        }
        return;
    }
    if (!now.exists) {
        SimReport::inFile(file_, "does not exist; the world is empty");
    }
    stamp_ = now;
    world_ = load(now.exists ? &text : nullptr);
}

bool SimWorldLoader::readFile(std::string& text) const {
    std::ifstream in(file_, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    text = bytes.str();
    return !in.bad();
}

std::shared_ptr<const SimWorld> SimWorldLoader::world() const {
    ScopedLock lock(mutex_);
    return world_;
}

std::shared_ptr<SimEventLog> SimWorldLoader::eventLog(SimEventLog::Setup setup) {
    const std::u16string key = setup.file.u16string();
    auto it = logs_.find(key);
    if (it != logs_.end() && it->second->setup() == setup) {
        return it->second;
    }
    auto log = std::make_shared<SimEventLog>(std::move(setup));
    logs_[key] = log;
    return log;
}

std::shared_ptr<SimWorld> SimWorldLoader::load(const std::string* text) {
    auto world = std::make_shared<SimWorld>();
    world->setEvents(events_);
    if (file_.empty()) {
        SimHostWorld::addTo(world->localHost());
    } else if (text) {
        try {
            std::string checked = *text;
            for (const auto& [offset, number] : nullOutOfRangeNumbers(checked)) {
                SimReport::atLine(
                    file_, lineOf(checked, offset),
                    Str::printf("the number %s is out of range; the value is null", number.c_str())
                        .segment());
            }
            const Json root = Json::parse(checked);
            WorldReader reader(file_, directory_, [this](SimEventLog::Setup setup) {
                return eventLog(std::move(setup));
            });
            reader.read(root, *world);
        } catch (const Json::parse_error& e) {
            SimReport::atLine(file_, lineOf(*text, e.byte > 0 ? e.byte - 1 : 0),
                              Str::printf("%s; the world is empty", e.what()).segment());
            world = std::make_shared<SimWorld>();
            world->setEvents(events_);
        } catch (const RefusedName& refused) {
            SimReport::inFile(file_, refused.message.segment());
            world = std::make_shared<SimWorld>();
            world->setEvents(events_);
        } catch (const Json::exception& e) {
            SimReport::inFile(file_, Str::printf("%s; the world is empty", e.what()).segment());
            world = std::make_shared<SimWorld>();
            world->setEvents(events_);
        }
    }
    world->localHost();
    for (const auto& host : world->hosts()) {
        addEventLogClass(*host);
    }
    return world;
}

}  // namespace morvax::wmi
