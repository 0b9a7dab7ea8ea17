// Fuzz target of the simulated provider's files. An input is a world file, then after a NUL the
// lines of an event-log file. The world goes through the loader as world.json of a directory:
// whatever it holds, the loader gives a world, and every name that reaches the event stream in
// it (classes, properties, those of embedded objects) is a WMI name. The event lines go through
// an event log and a record file, once whole and once in two appends: each line that is a JSON
// object is one record, its values come back from the packed store as the reader made them, and
// appending in parts reads the same as reading at once.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzDiscardLog.h"
#include "FuzzScratch.h"
#include "FuzzSupport.h"
#include "wmi/Wmi.h"
#include "wmi/sim/SimBuiltins.h"
#include "wmi/sim/SimEventLog.h"
#include "wmi/sim/SimEventRecords.h"
#include "wmi/sim/SimHost.h"
#include "wmi/sim/SimJsonReader.h"
#include "wmi/sim/SimJsonlFile.h"
#include "wmi/sim/SimJsonlTail.h"
#include "wmi/sim/SimNamespace.h"
#include "wmi/sim/SimWorld.h"
#include "wmi/sim/SimWorldLoader.h"
#include "wmi/wql/WqlText.h"

namespace morvax {
namespace {

using fuzz::check;
using namespace wmi;
using Json = SimJsonReader::Json;

// An object's property names, and those of the objects it embeds, are WMI names.
void checkNames(ClassObject& object, int depth) {
    check(depth <= SimJsonReader::kMaxNesting + 2, "embedded objects within the nesting bound");
    std::vector<std::u16string> names;
    if (failed(object.getNames(names))) {
        return;
    }
    for (const std::u16string& name : names) {
        check(WqlText::isName(name), "an embedded property name is a WMI name");
        Variant value;
        if (failed(object.get(name, value))) {
            continue;
        }
        std::vector<const Variant*> values{&value};
        for (const Variant& element : value.array) {
            values.push_back(&element);
        }
        for (const Variant* v : values) {
            if (v->object) {
                checkNames(*v->object, depth + 1);
            }
        }
    }
}

void checkNamespace(const SimNamespace& ns) {
    for (const auto& cls : ns.classes()) {
        if (cls->name() != SimBuiltins::ntLogEvent()->name()) {
            check(WqlText::isName(cls->name()), "a class name is a WMI name");
        }
        for (const SimProperty& property : cls->properties()) {
            check(WqlText::isName(property.name), "a property name is a WMI name");
        }
        for (const auto& instance : ns.instancesOf(*cls)) {
            check(instance->values().size() == cls->properties().size(),
                  "an instance has one value per property");
            for (const Variant& value : instance->values()) {
                if (value.object) {
                    checkNames(*value.object, 1);
                }
            }
        }
    }
}

// What the loader made of the hosts and namespaces that the file names.
void checkWorld(const SimWorld& world, std::string_view text) {
    check(world.findHost(u"") != nullptr, "a world has the local machine");
    Json root;
    try {
        root = Json::parse(text.begin(), text.end());
    } catch (const Json::exception&) {
        return;
    }
    const Json* hosts = root.is_object() && root.contains("hosts") ? &root["hosts"] : nullptr;
    if (hosts == nullptr || !hosts->is_object()) {
        return;
    }
    for (auto host = hosts->begin(); host != hosts->end(); ++host) {
        const SimHost* found = world.findHost(SimJsonReader::wide(host.key()));
        if (found == nullptr || !host.value().is_object() || !host.value().contains("namespaces") ||
            !host.value()["namespaces"].is_object()) {
            continue;
        }
        const Json& namespaces = host.value()["namespaces"];
        for (auto ns = namespaces.begin(); ns != namespaces.end(); ++ns) {
            if (const SimNamespace* declared =
                    found->findNamespace(SimJsonReader::wide(ns.key()))) {
                checkNamespace(*declared);
            }
        }
    }
}

// The lines a record file hands on: LF-terminated, not blank, without a CR before the LF or a
// mark at the start of the file.
std::vector<std::string> wholeLines(std::string_view bytes) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = bytes.find('\n', start)) != std::string_view::npos; start = end + 1) {
        std::string line(bytes.substr(start, end - start));
        if (start == 0 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            line.erase(0, 3);
        }
        if (line.find_first_not_of(" \t\r") == std::string::npos ||
            line.size() > SimJsonlTail::kMaxLineBytes) {
            continue;
        }
        if (line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

bool isObject(const std::string& line) {
    try {
        return Json::parse(line).is_object();
    } catch (const Json::exception&) {
        return false;
    }
}

// The types the packed store keeps; it keeps others as null.
bool isStoredType(uint16_t vt) {
    switch (vt & VT_TYPEMASK) {
        case VT_EMPTY:
        case VT_NULL:
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
        case VT_R4:
        case VT_R8:
        case VT_BOOL:
        case VT_BSTR:
        case VT_LPWSTR:
            return true;
        default:
            return false;
    }
}

// A value as the packed store keeps it: null where it keeps none.
bool sameStored(const Variant& stored, const Variant& made) {
    const uint16_t base = made.vt & VT_TYPEMASK;
    bool packable = isStoredType(made.vt);
    for (const Variant& element : made.array) {
        packable = packable && element.vt == base;
    }
    if (!packable) {
        return stored.vt == VT_NULL;
    }
    if (stored.vt != made.vt || stored.array.size() != made.array.size()) {
        return false;
    }
    auto sameScalar = [](const Variant& a, const Variant& b) {
        switch (a.vt & VT_TYPEMASK) {
            case VT_BSTR:
            case VT_LPWSTR:
                return a.str == b.str;
            case VT_R4:
            case VT_R8:
                return std::memcmp(&a.d, &b.d, sizeof a.d) == 0;
            case VT_BOOL:
                return a.b == b.b;
            case VT_UI1:
            case VT_UI2:
            case VT_UI4:
            case VT_UI8:
            case VT_UINT:
                return a.u == b.u;
            default:
                return a.i == b.i;
        }
    };
    if (!made.isArray()) {
        return sameScalar(stored, made);
    }
    for (size_t i = 0; i < made.array.size(); ++i) {
        if (!sameScalar(stored.array[i], made.array[i])) {
            return false;
        }
    }
    return true;
}

std::vector<std::shared_ptr<const SimInstance>> recordsOf(const SimEventLog& log) {
    uint64_t generation;
    size_t count;
    log.position(generation, count);
    std::vector<std::shared_ptr<const SimInstance>> records;
    check(log.recordsFrom(generation, 0, records), "a log's records in its generation");
    return records;
}

void checkEvents(std::string_view bytes, const fuzz::ScratchDirectory& scratch) {
    const std::filesystem::path whole = scratch.path() / "whole.jsonl";
    const std::filesystem::path parts = scratch.path() / "parts.jsonl";
    check(fuzz::ScratchDirectory::write(whole, bytes.data(), bytes.size()), "events written");
    // The second part starts at an arbitrary byte, often inside a line.
    const size_t cut = bytes.size() / 2;
    check(fuzz::ScratchDirectory::write(parts, bytes.data(), cut), "first part written");

    SimEventLog::Setup setup;
    setup.name = u"Application";
    setup.computerName = u"localhost";
    setup.synthetic = 3;
    setup.file = whole;
    SimEventLog log(setup);
    log.refresh();
    setup.file = parts;
    SimEventLog appended(setup);
    appended.refresh();
    {
        std::ofstream out(parts, std::ios::binary | std::ios::app);
        out.write(bytes.data() + cut, static_cast<std::streamsize>(bytes.size() - cut));
    }
    appended.refresh();

    SimJsonlFile file(whole);
    const uint64_t generation = file.refresh();
    std::vector<SimJsonlFile::Line> fileLines;
    check(file.linesFrom(generation, 0, fileLines), "a record file's lines in its generation");

    std::vector<std::string> objects;
    for (const std::string& line : wholeLines(bytes)) {
        if (isObject(line)) {
            objects.push_back(line);
        }
    }
    check(fileLines.size() == objects.size(), "every object line of a file is one line");
    for (size_t i = 0; i < objects.size(); ++i) {
        check(fileLines[i].text.view() == objects[i], "a line is handed on as it stands");
        check(i == 0 || fileLines[i].number > fileLines[i - 1].number, "line numbers ascend");
    }

    const auto records = recordsOf(log);
    const auto again = recordsOf(appended);
    check(records.size() == objects.size(), "every object line is one record");
    check(again.size() == records.size(), "a file read in parts has the records read at once");
    const auto& cls = SimBuiltins::ntLogEvent();
    const int recordNumber = cls->find(u"RecordNumber");
    uint32_t last = static_cast<uint32_t>(setup.synthetic);
    SimJsonReader reader(nullptr, u"root\\cimv2");
    for (size_t i = 0; i < records.size(); ++i) {
        std::vector<Str> problems;
        std::vector<Variant> made = reader.values(*cls, Json::parse(objects[i]), problems);
        made[cls->find(u"Logfile")] = Variant::fromString(u"Application");
        Variant& number = made[recordNumber];
        if (number.vt == VT_NULL) {
            number = Variant::fromInt(VT_I4, static_cast<int32_t>(last + 1u));
        }
        last = static_cast<uint32_t>(number.i);
        const std::vector<Variant>& stored = records[i]->values();
        check(stored.size() == made.size(), "a record has one value per property");
        for (size_t p = 0; p < made.size(); ++p) {
            check(sameStored(stored[p], made[p]), "a record's values come back as made");
            check(sameStored(again[i]->values()[p], made[p]), "appended records are the same");
        }
    }

    // Narrowing by record number never leaves out a record of the range.
    std::shared_ptr<const SimEventRecords> packed;
    size_t count;
    log.records(packed, count);
    for (size_t i = 0; i < records.size(); ++i) {
        const Variant& n = records[i]->values()[recordNumber];
        if (n.vt != VT_I4) {
            continue;
        }
        size_t begin;
        size_t end;
        packed->narrow(count, n.i, n.i, begin, end);
        check(begin <= i && i < end, "a record lies in the range its number narrows to");
    }
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    static const fuzz::ScratchDirectory scratch("sim");
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t nul = input.find('\0');
    const std::string_view world = input.substr(0, nul);
    const std::string_view events =
        nul == std::string_view::npos ? std::string_view() : input.substr(nul + 1);

    check(fuzz::ScratchDirectory::write(scratch.path() / "world.json", world.data(), world.size()),
          "the world is written");
    wmi::SimWorldLoader loader(scratch.path());
    const std::shared_ptr<const wmi::SimWorld> loaded = loader.world();
    check(loaded != nullptr, "the loader always gives a world");
    checkWorld(*loaded, world);
    checkEvents(events, scratch);
    return 0;
}
