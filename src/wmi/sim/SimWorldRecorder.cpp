#include "wmi/sim/SimWorldRecorder.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "util/base/LastError.h"
#include "util/io/Pathname.h"
#include "util/time/MonotonicTime.h"
#include "util/time/Sleep.h"
#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimHost.h"
#include "wmi/sim/SimJsonlTail.h"
#include "wmi/sim/SimTypes.h"
#include "wmi/sim/SimWorld.h"
#include "wmi/sim/SimWorldLoader.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

using Json = nlohmann::ordered_json;

constexpr unsigned kBatch = 100;
// How long one next() may wait on a provider that has more to come.
constexpr long kNextWaitMs = 1000;
// A provider that delivers nothing for this long is given up on.
constexpr uint64_t kStallMs = 60000;
// Bounds of a value, well within what the world reader takes (its nesting limit counts arrays
// and objects alike, and each embedded level may hold an array).
constexpr int kMaxObjectDepth = 8;
constexpr size_t kMaxArrayElements = 100000;
constexpr uint32_t kRenameAttempts = 10;
constexpr uint32_t kRenamePauseMs = 100;

bool isSystemName(const std::u16string& name) {
    return name.size() > 2 && name[0] == u'_' && name[1] == u'_';
}

std::string utf8(const std::u16string& text) {
    return Str::fromWide(text).c_str();
}

// Reads an enumeration until its end or until `take` says stop, waiting on a slow provider up
// to kStallMs without progress. WBEM_S_FALSE at the end, WBEM_S_NO_ERROR when stopped.
template <typename Take>
HRESULT readAll(Enumerator& enumerator, Take take) {
    uint64_t progress = MonotonicTime::now();
    for (;;) {
        std::vector<std::shared_ptr<ClassObject>> batch;
        const HRESULT hr = enumerator.next(kNextWaitMs, kBatch, batch);
        for (const auto& object : batch) {
            if (!take(*object)) {
                return WBEM_S_NO_ERROR;
            }
        }
        if (failed(hr) || hr == WBEM_S_FALSE) {
            return hr;
        }
        if (!batch.empty()) {
            progress = MonotonicTime::now();
        } else if (MonotonicTime::now() - progress >= kStallMs) {
            return WBEM_S_TIMEDOUT;
        } else {
            sleep(10);
        }
    }
}

struct IntegerType {
    int32_t cim;
    int bits;
    bool isSigned;
};

const IntegerType kIntegerTypes[] = {
    {CIM_SINT8, 8, true},    {CIM_UINT8, 8, false},   {CIM_SINT16, 16, true},
    {CIM_UINT16, 16, false}, {CIM_CHAR16, 16, false}, {CIM_SINT32, 32, true},
    {CIM_UINT32, 32, false}, {CIM_SINT64, 64, true},  {CIM_UINT64, 64, false},
};

const IntegerType* integerType(int32_t cim) {
    for (const IntegerType& t : kIntegerTypes) {
        if (t.cim == cim) {
            return &t;
        }
    }
    return nullptr;
}

// An integer of CIM type `t` as WMI carries it (widened, a uint32 in VT_I4 with its bits kept,
// 64-bit values as text) back to its own value.
bool integerJson(const Variant& v, const IntegerType& t, Json& out, Str& why) {
    Variant number;
    if (!failed(changeType(number, v, t.isSigned ? VT_I8 : VT_UI8))) {
        out = t.isSigned ? Json(number.i) : Json(number.u);
        return true;
    }
    // The carrier's sign bits are not the value's.
    if (!t.isSigned && t.bits < 64 && !failed(changeType(number, v, VT_I8)) && number.i < 0 &&
        number.i >= -(int64_t{1} << t.bits)) {
        out = static_cast<uint64_t>(number.i) & ((uint64_t{1} << t.bits) - 1);
        return true;
    }
    Variant text;
    changeType(text, v, VT_BSTR);
    why.format("%s is not an integer of the property's type", utf8(text.str).c_str());
    return false;
}

// Turns values into the JSON a world file holds, noting the classes of embedded objects.
class JsonWriter {
  public:
    struct Embedded {
        std::u16string where;
        std::u16string className;
    };

    explicit JsonWriter(std::vector<Embedded>& embedded) : embedded_(embedded) {}

    bool value(const Variant& v, int32_t cimType, const std::u16string& where, int depth, Json& out,
               Str& why) {
        out = nullptr;
        if (v.vt == VT_NULL || v.vt == VT_EMPTY) {
            return true;
        }
        if (v.isArray()) {
            if (v.array.size() > kMaxArrayElements) {
                why.format("an array of %zu elements, more than %zu", v.array.size(),
                           kMaxArrayElements);
                return false;
            }
            out = Json::array();
            for (const Variant& element : v.array) {
                Json item;
                if (!value(element, cimType & ~CIM_FLAG_ARRAY, where, depth, item, why)) {
                    return false;
                }
                out.push_back(std::move(item));
            }
            return true;
        }
        const int32_t base = cimType & ~CIM_FLAG_ARRAY;
        if (const IntegerType* t = integerType(base)) {
            return integerJson(v, *t, out, why);
        }
        switch (base) {
            case CIM_REAL32:
            case CIM_REAL64: {
                Variant number;
                if (failed(changeType(number, v, VT_R8)) || !std::isfinite(number.d)) {
                    why = "not a finite number";
                    return false;
                }
                out = number.d;
                return true;
            }
            case CIM_BOOLEAN: {
                Variant flag;
                if (failed(changeType(flag, v, VT_BOOL))) {
                    why = "not a boolean";
                    return false;
                }
                out = flag.b;
                return true;
            }
            case CIM_OBJECT:
                if (v.vt != VT_UNKNOWN || !v.object) {
                    why = "an object without an object";
                    return false;
                }
                return object(*v.object, where, depth + 1, out, why);
            default: {
                Variant text;
                if (failed(changeType(text, v, VT_BSTR))) {
                    why.format("a value of variant type %u is not text",
                               static_cast<unsigned>(v.vt));
                    return false;
                }
                out = utf8(text.str);
                return true;
            }
        }
    }

    bool object(ClassObject& object, const std::u16string& where, int depth, Json& out, Str& why) {
        if (depth > kMaxObjectDepth) {
            why.format("embedded objects nest deeper than %d levels", kMaxObjectDepth);
            return false;
        }
        out = Json::object();
        Variant className;
        if (!failed(object.get(u"__CLASS", className)) && className.vt == VT_BSTR &&
            !className.str.empty()) {
            out["__CLASS"] = utf8(className.str);
            embedded_.push_back(Embedded{where, className.str});
        }
        std::vector<std::u16string> names;
        HRESULT hr = object.getNames(names);
        if (failed(hr)) {
            why.appendFormatError(static_cast<uint32_t>(hr),
                                  "the names of an embedded object: 0x%08X %m",
                                  static_cast<unsigned>(hr));
            return false;
        }
        for (const std::u16string& name : names) {
            Variant v;
            int32_t type = CIM_EMPTY;
            hr = object.getWithType(name, v, type);
            if (failed(hr)) {
                why.appendFormatError(static_cast<uint32_t>(hr),
                                      "%s of an embedded object: 0x%08X %m", utf8(name).c_str(),
                                      static_cast<unsigned>(hr));
                return false;
            }
            if (type == CIM_EMPTY) {
                type = SimTypes::cimNumber(SimTypes::explicitVt(v.vt));
            }
            Json item;
            if (!value(v, type, where, depth, item, why)) {
                return false;
            }
            out[utf8(name)] = std::move(item);
        }
        return true;
    }

  private:
    std::vector<Embedded>& embedded_;
};

std::u16string dotted(const std::u16string& a, const std::u16string& b) {
    return a + u"." + b;
}

// Writes `bytes` to `path` through a temporary file in the same directory, forced to the disk
// and renamed over it, as every file the project writes: readers see the old file or the new.
bool writeWhole(const Pathname& path, const std::string& bytes, Str& why) {
    if (!path.dirName().makeDirectories()) {
        why.appendFormatError(LastError::get(), "cannot make the directory of %s: %m",
                              path.toStr().c_str());
        return false;
    }
    Pathname temporary;
    if (!path.makeTempSibling(temporary)) {
        why.appendFormatError(LastError::get(), "cannot make a temporary file beside %s: %m",
                              path.toStr().c_str());
        return false;
    }
    bool written = false;
    {
        FileHandle file = temporary.openForWrite();
        written = file && file.write(bytes.data(), bytes.size()) && file.sync() && file.close();
    }
    if (written) {
        written = temporary.renameWithRetry(path, kRenameAttempts, kRenamePauseMs, true).succeeded;
    }
    if (!written) {
        why.appendFormatError(LastError::get(), "cannot write %s: %m", path.toStr().c_str());
        LastErrorPreserver keep;
        temporary.removeFile();
    }
    return written;
}

}  // namespace

SimWorldRecorder::SimWorldRecorder(Locator& locator, Options options, Report report)
    : locator_(locator), options_(std::move(options)), report_(std::move(report)) {}

SimWorldRecorder::~SimWorldRecorder() = default;

void SimWorldRecorder::note(const Str& line) {
    report_(line);
}

void SimWorldRecorder::fail(const std::u16string& where, const char* step, HRESULT hr) {
    ok_ = false;
    Str line;
    line.appendWide(where);
    line.appendFormatError(static_cast<uint32_t>(hr), ": %s: 0x%08X %m", step,
                           static_cast<unsigned>(hr));
    note(line);
}

bool SimWorldRecorder::run() {
    std::u16string server, nameSpace;
    SimWorld::splitPath(options_.nameSpace, server, nameSpace);
    const Str hostKey = SimWorld::isLocalServer(server) ? Str(".") : Str::fromWide(server);
    const Str nameSpaceKey = Str::fromWide(SimHost::normalizeNamespace(nameSpace));

    std::shared_ptr<Services> services;
    const HRESULT hr = locator_.connectServer(options_.nameSpace, services);
    if (failed(hr)) {
        // The world answers as the server did.
        fail(options_.nameSpace, "connectServer", hr);
        return write(hostKey, nameSpaceKey, hr) && ok_;
    }
    std::vector<std::u16string> names = options_.classes;
    if (names.empty() && !listClasses(*services, names)) {
        return write(hostKey, nameSpaceKey, WBEM_S_NO_ERROR) && ok_;
    }
    for (const std::u16string& name : names) {
        if (WqlText::isWord(name, "win32_ntlogevent")) {
            Str line;
            line.appendWide(name).append(
                ": its records are recorded per event log, not as a class");
            note(line);
            continue;
        }
        recordClass(*services, name);
    }
    for (const std::u16string& log : options_.eventLogs) {
        recordLog(*services, log);
    }
    return write(hostKey, nameSpaceKey, WBEM_S_NO_ERROR) && ok_;
}

bool SimWorldRecorder::listClasses(Services& services, std::vector<std::u16string>& out) {
    std::unique_ptr<Enumerator> enumerator;
    HRESULT hr = services.createClassEnum(enumerator);
    if (!failed(hr)) {
        hr = readAll(*enumerator, [&](ClassObject& definition) {
            Variant name, abstract;
            if (failed(definition.get(u"__CLASS", name)) || name.vt != VT_BSTR ||
                isSystemName(name.str) || WqlText::isWord(name.str, "win32_ntlogevent")) {
                return true;
            }
            const bool isAbstract = !failed(definition.getQualifier(u"abstract", abstract)) &&
                                    abstract.vt == VT_BOOL && abstract.b;
            if (!isAbstract) {
                out.push_back(name.str);
            }
            return true;
        });
    }
    if (failed(hr) || hr == WBEM_S_TIMEDOUT) {
        fail(options_.nameSpace, "listing the classes (name the classes to record)", hr);
        return false;
    }
    return true;
}

void SimWorldRecorder::recordClass(Services& services, const std::u16string& name) {
    std::shared_ptr<ClassObject> definition;
    HRESULT hr = services.getObject(name, definition);
    if (failed(hr)) {
        fail(name, "getObject", hr);
        return;
    }
    Class cls;
    cls.name = name;
    Variant value;
    if (!failed(definition->get(u"__CLASS", value)) && value.vt == VT_BSTR) {
        cls.name = value.str;  // as the provider spells it
    }
    hr = definition->get(u"__SUPERCLASS", value);
    if (failed(hr)) {
        fail(cls.name, "__SUPERCLASS", hr);
    } else if (value.vt == VT_BSTR && !value.str.empty()) {
        cls.hasSuperclass = true;
        cls.superclass = value.str;
    }
    std::vector<std::u16string> names;
    hr = definition->getNames(names);
    if (failed(hr)) {
        fail(cls.name, "getNames", hr);
    }
    for (const std::u16string& property : names) {
        Property p{property};
        hr = definition->getWithType(property, value, p.cimType);
        // A provider may know the type only from an instance: the instances are asked then.
        p.typeFailure = failed(hr) ? hr : WBEM_S_NO_ERROR;
        if (failed(hr)) {
            p.cimType = CIM_EMPTY;
        }
        cls.properties.push_back(std::move(p));
    }

    std::unique_ptr<Enumerator> enumerator;
    hr = services.execQuery(u"SELECT * FROM " + name, enumerator);
    if (failed(hr)) {
        fail(cls.name, "execQuery", hr);
    } else {
        bool truncated = false;
        hr = readAll(*enumerator, [&](ClassObject& instance) {
            // Instances of derived classes are recorded with their own class.
            Variant className;
            if (!failed(instance.get(u"__CLASS", className)) && className.vt == VT_BSTR &&
                !SimClass::sameName(className.str, cls.name)) {
                return true;
            }
            if (cls.instances.size() == options_.limit) {
                truncated = true;
                return false;
            }
            std::vector<Variant> row;
            readValues(instance, cls, row);
            cls.instances.push_back(std::move(row));
            return true;
        });
        if (failed(hr) || hr == WBEM_S_TIMEDOUT) {
            fail(cls.name, hr == WBEM_S_TIMEDOUT ? "next (no answer for 60 s)" : "next", hr);
        }
        if (truncated) {
            Str line;
            line.appendWide(cls.name).appendFormat(
                ": more than %zu instances; the first %zu recorded", options_.limit,
                options_.limit);
            note(line);
        }
    }
    classes_.push_back(std::move(cls));
}

void SimWorldRecorder::readValues(ClassObject& object, Class& cls, std::vector<Variant>& row) {
    // A class whose definition gave no names takes them from its first instance.
    if (cls.properties.empty() && cls.instances.empty()) {
        std::vector<std::u16string> names;
        const HRESULT hr = object.getNames(names);
        if (failed(hr)) {
            fail(cls.name, "getNames", hr);
        }
        for (const std::u16string& name : names) {
            cls.properties.push_back(Property{name});
        }
    }
    row.resize(cls.properties.size(), Variant::null());
    for (size_t i = 0; i < cls.properties.size(); ++i) {
        Property& p = cls.properties[i];
        int32_t type = CIM_EMPTY;
        const HRESULT hr = object.getWithType(p.name, row[i], type);
        if (failed(hr)) {
            row[i] = Variant::null();
            const std::u16string where = dotted(cls.name, p.name);
            if (firstReport(where)) {
                fail(where, "get", hr);
            }
            continue;
        }
        if (p.cimType == CIM_EMPTY && type != CIM_EMPTY) {
            p.cimType = type;
        }
    }
}

void SimWorldRecorder::recordLog(Services& services, const std::u16string& name) {
    if (name.empty() || name.find_first_of(u"'\\") != std::u16string::npos) {
        Str line;
        line.appendWide(name).append(": not a name an event log can have in a query");
        ok_ = false;
        note(line);
        return;
    }
    Log log;
    log.name = name;
    std::vector<Json> records;
    std::vector<JsonWriter::Embedded> embedded;
    JsonWriter writer(embedded);
    std::unique_ptr<Enumerator> enumerator;
    const std::u16string where = u"Win32_NTLogEvent[" + name + u"]";
    HRESULT hr = services.execQuery(
        u"SELECT * FROM Win32_NTLogEvent WHERE Logfile = '" + name + u"'", enumerator);
    if (failed(hr)) {
        fail(where, "execQuery", hr);
    } else {
        bool truncated = false;
        hr = readAll(*enumerator, [&](ClassObject& record) {
            if (records.size() == options_.limit) {
                truncated = true;
                return false;
            }
            Json line;
            Str why;
            if (!writer.object(record, where, 0, line, why)) {
                Str text;
                text.appendWide(where).append(": a record left out: ").append(why);
                note(text);
                return true;
            }
            line.erase("__CLASS");
            records.push_back(std::move(line));
            return true;
        });
        if (failed(hr) || hr == WBEM_S_TIMEDOUT) {
            fail(where, "next", hr);
        }
        if (truncated) {
            Str line;
            line.appendWide(where).appendFormat(": more than %zu records; the first %zu recorded",
                                                options_.limit, options_.limit);
            note(line);
        }
    }
    // The file holds records oldest first; the order tells in which order they are delivered.
    auto number = [](const Json& record) {
        const auto it = record.find("RecordNumber");
        return it != record.end() && it->is_number() ? it->get<int64_t>() : 0;
    };
    log.descending = records.size() < 2 || number(records.front()) > number(records.back());
    if (log.descending) {
        std::reverse(records.begin(), records.end());
    }
    for (const Json& record : records) {
        std::string text = record.dump(-1, ' ', false, Json::error_handler_t::replace);
        if (text.size() > SimJsonlTail::kMaxLineBytes) {
            Str line;
            line.appendWide(where).appendFormat(": record %lld left out: longer than %zu bytes",
                                                static_cast<long long>(number(record)),
                                                SimJsonlTail::kMaxLineBytes);
            note(line);
            continue;
        }
        log.lines.push_back(std::move(text));
    }
    logs_.push_back(std::move(log));
}

bool SimWorldRecorder::write(const Str& hostKey, const Str& nameSpaceKey, HRESULT connectFailure) {
    std::vector<JsonWriter::Embedded> embedded;
    JsonWriter writer(embedded);
    Json host = Json::object();
    if (failed(connectFailure)) {
        host["connect"] = {
            {"hresult", Str::printf("0x%08X", static_cast<unsigned>(connectFailure)).c_str()}};
    } else {
        Json classes = Json::object();
        for (const Class& cls : classes_) {
            Json body = Json::object();
            if (cls.hasSuperclass) {
                body["superclass"] = utf8(cls.superclass);
            }
            Json properties = Json::object();
            for (const Property& p : cls.properties) {
                const char* type = SimTypes::cimName(p.cimType);
                if (!type) {
                    Str line;
                    line.appendWide(dotted(cls.name, p.name));
                    if (failed(p.typeFailure)) {
                        line.appendFormatError(static_cast<uint32_t>(p.typeFailure),
                                               ": type not known (0x%08X %m); left out",
                                               static_cast<unsigned>(p.typeFailure));
                    } else {
                        line.appendFormat(": CIM type %d has no name in a world; left out",
                                          static_cast<int>(p.cimType));
                    }
                    note(line);
                    continue;
                }
                properties[utf8(p.name)] =
                    std::string(type) + ((p.cimType & CIM_FLAG_ARRAY) ? "[]" : "");
            }
            body["properties"] = std::move(properties);
            Json instances = Json::array();
            for (const std::vector<Variant>& row : cls.instances) {
                Json instance = Json::object();
                for (size_t i = 0; i < cls.properties.size(); ++i) {
                    const Property& p = cls.properties[i];
                    if (!SimTypes::cimName(p.cimType)) {
                        continue;
                    }
                    const std::u16string where = dotted(cls.name, p.name);
                    Json item;
                    Str why;
                    if (i < row.size() && !writer.value(row[i], p.cimType, where, 0, item, why)) {
                        if (firstReport(where)) {
                            Str line;
                            line.appendWide(where).append(": ").append(why).append(
                                "; recorded as null");
                            note(line);
                        }
                        item = nullptr;
                    }
                    instance[utf8(p.name)] = std::move(item);
                }
                instances.push_back(std::move(instance));
            }
            body["instances"] = std::move(instances);
            classes[utf8(cls.name)] = std::move(body);
        }
        host["namespaces"] = {{nameSpaceKey.c_str(), {{"classes", std::move(classes)}}}};
        if (!logs_.empty()) {
            Json logs = Json::object();
            for (const Log& log : logs_) {
                logs[utf8(log.name)] = {{"order", log.descending ? "descending" : "ascending"}};
            }
            host["eventlogs"] = std::move(logs);
        }
    }
    // An embedded object of a class the world does not declare is read back with the types its
    // JSON values suggest, which may not be the provider's.
    for (const JsonWriter::Embedded& e : embedded) {
        bool declared = false;
        for (const Class& cls : classes_) {
            declared = declared || SimClass::sameName(cls.name, e.className);
        }
        if (!declared && firstReport(e.where + u":" + e.className)) {
            Str line;
            line.appendWide(e.where)
                .append(": embedded objects of class ")
                .appendWide(e.className)
                .append(
                    ", which the world does not declare, read back with the types of their "
                    "JSON values");
            note(line);
        }
    }

    const Json root = {{"hosts", {{hostKey.c_str(), std::move(host)}}}};
    return writeFiles(hostKey, root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

bool SimWorldRecorder::writeFiles(const Str& hostKey, const std::string& world) {
    const Pathname directory = Pathname::absoluteClean(options_.directory);
    bool ok = true;
    Str why;
    for (const Log& log : logs_) {
        std::string bytes;
        for (const std::string& line : log.lines) {
            bytes.append(line).push_back('\n');
        }
        const std::filesystem::path file = SimWorldLoader::eventLogFile(
            std::filesystem::path(directory.wide()), hostKey.toWide(), log.name);
        if (!writeWhole(Pathname::absoluteClean(file.u16string()), bytes, why)) {
            ok = false;
            note(why);
            why.clear();
        }
    }
    // Last, so that the world never names a log whose file is not there yet.
    if (!writeWhole(Pathname::join(directory, "world.json"), world, why)) {
        ok = false;
        note(why);
    }
    return ok;
}

bool SimWorldRecorder::firstReport(const std::u16string& key) {
    if (std::find(reported_.begin(), reported_.end(), key) != reported_.end()) {
        return false;
    }
    reported_.push_back(key);
    return true;
}

}  // namespace morvax::wmi
