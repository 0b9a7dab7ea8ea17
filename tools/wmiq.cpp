// wmiq: runs one WQL query through the WMI layer and prints what comes back, per object each
// property as "name<TAB>vt<TAB>value", then the final status of next(). A developer's and user's
// window onto a provider, real or simulated. With -record it writes what a namespace answers
// as a world of the simulated provider instead, so that a server can be replayed elsewhere.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "util/base/Str.h"
#include "util/time/Sleep.h"
#include "wmi/Wmi.h"
#include "wmi/WmiProvider.h"
#include "wmi/sim/SimWorldRecorder.h"

using namespace morvax;
using namespace morvax::wmi;

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: wmiq [-provider sim|com] [-notification] NAMESPACE WQL\n"
                 "       wmiq [-provider sim|com] -record DIR [-limit N] [-eventlog LOG]...\n"
                 "            NAMESPACE [CLASS...]\n"
                 "  -record writes DIR/world.json: the classes named (none: every class that is\n"
                 "  not abstract) with their types and at most N instances each (default %zu),\n"
                 "  and the first N records WMI delivers of each LOG (Windows: the newest)\n",
                 SimWorldRecorder::Options().limit);
    return 2;
}

// A count of at least 1, all digits.
bool parseLimit(const char* text, size_t& out) {
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (!*text || *end || text[0] == '-' || value == 0 || value > 100000000) {
        return false;
    }
    out = static_cast<size_t>(value);
    return true;
}

int record(Locator& locator, SimWorldRecorder::Options options) {
    SimWorldRecorder recorder(locator, std::move(options),
                              [](const Str& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
    return recorder.run() ? 0 : 1;
}

void appendValue(Str& out, const Variant& v);

void appendScalar(Str& out, const Variant& v) {
    switch (v.vt & VT_TYPEMASK) {
        case VT_EMPTY:
            out.append("EMPTY");
            break;
        case VT_NULL:
            out.append("NULL");
            break;
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
            out.appendFormat("%lld", static_cast<long long>(v.i));
            break;
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
            out.appendFormat("%llu", static_cast<unsigned long long>(v.u));
            break;
        case VT_R4:
        case VT_R8:
            out.appendFormat("%.17g", v.d);
            break;
        case VT_BOOL:
            out.append(v.b ? "TRUE" : "FALSE");
            break;
        case VT_UNKNOWN: {
            Variant cls;
            if (v.object && !failed(v.object->get(u"__CLASS", cls)) && cls.vt == VT_BSTR) {
                out.append("<object ").appendWide(cls.str).append(">");
            } else {
                out.append("<object>");
            }
            break;
        }
        default:
            out.appendWide(v.str);
    }
}

void appendValue(Str& out, const Variant& v) {
    if (!v.isArray()) {
        appendScalar(out, v);
        return;
    }
    out.append('{');
    for (size_t i = 0; i < v.array.size(); ++i) {
        if (i) {
            out.append(',');
        }
        appendScalar(out, v.array[i]);
    }
    out.append('}');
}

// Prints the object's properties; embedded objects follow with their names as prefix.
void printObject(ClassObject& object, const Str& prefix, int depth) {
    std::vector<std::u16string> names;
    if (failed(object.getNames(names))) {
        return;
    }
    for (const std::u16string& name : names) {
        Variant value;
        Str line(prefix);
        line.appendWide(name);
        if (failed(object.get(name, value))) {
            line.append("\t-\t<get failed>\n");
            std::fwrite(line.data(), 1, line.size(), stdout);
            continue;
        }
        line.appendFormat("\t%u\t", static_cast<unsigned>(value.vt));
        appendValue(line, value);
        line.append('\n');
        std::fwrite(line.data(), 1, line.size(), stdout);
        if (value.vt == VT_UNKNOWN && value.object && depth < 4) {
            Str inner(prefix);
            inner.appendWide(name).append('.');
            printObject(*value.object, inner, depth + 1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool notification = false;
    bool recording = false;
    bool recordingOptions = false;  // -limit and -eventlog belong to -record
    SimWorldRecorder::Options options;
    WmiProvider::Kind provider = WmiProvider::selected();
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "-notification") == 0) {
            notification = true;
        } else if (std::strcmp(argv[i], "-record") == 0 && hasValue) {
            recording = true;
            options.directory = Str::toWide(argv[++i]);
        } else if (std::strcmp(argv[i], "-limit") == 0 && hasValue) {
            recordingOptions = true;
            if (!parseLimit(argv[++i], options.limit)) {
                return usage();
            }
        } else if (std::strcmp(argv[i], "-eventlog") == 0 && hasValue) {
            recordingOptions = true;
            options.eventLogs.push_back(Str::toWide(argv[++i]));
        } else if (std::strcmp(argv[i], "-provider") == 0 && i + 1 < argc) {
            const char* kind = argv[++i];
            if (std::strcmp(kind, "sim") != 0 && std::strcmp(kind, "com") != 0) {
                return usage();
            }
            provider = std::strcmp(kind, "sim") == 0 ? WmiProvider::SIM : WmiProvider::COM;
        } else {
            return usage();
        }
    }
    if (recording ? (notification || argc - i < 1) : (recordingOptions || argc - i != 2)) {
        return usage();
    }
    const std::u16string ns = Str::toWide(argv[i]);

    HRESULT hr = WmiProvider::initializeProcess();
    if (failed(hr)) {
        std::fprintf(stderr, "initialize: 0x%08X\n", static_cast<unsigned>(hr));
        return 1;
    }
    int status = 0;
    if (recording) {
        std::unique_ptr<Locator> locator;
        if (failed(hr = WmiProvider::createLocator(provider, locator))) {
            std::fprintf(stderr, "createLocator: 0x%08X\n", static_cast<unsigned>(hr));
            status = 1;
        } else {
            options.nameSpace = ns;
            for (int c = i + 1; c < argc; ++c) {
                options.classes.push_back(Str::toWide(argv[c]));
            }
            status = record(*locator, std::move(options));
        }
    } else {
        const std::u16string wql = Str::toWide(argv[i + 1]);
        std::unique_ptr<Locator> locator;
        std::shared_ptr<Services> services;
        std::unique_ptr<Enumerator> enumerator;
        if (failed(hr = WmiProvider::createLocator(provider, locator)) ||
            failed(hr = locator->connectServer(ns, services))) {
            std::fprintf(stderr, "connectServer: 0x%08X\n", static_cast<unsigned>(hr));
            status = 1;
        } else if (failed(hr = notification ? services->execNotificationQuery(wql, enumerator)
                                            : services->execQuery(wql, enumerator))) {
            std::fprintf(stderr, "execQuery: 0x%08X\n", static_cast<unsigned>(hr));
            status = 1;
        } else {
            for (;;) {
                std::vector<std::shared_ptr<ClassObject>> batch;
                hr = enumerator->next(0, 100, batch);
                for (const auto& object : batch) {
                    printObject(*object, Str(), 0);
                    std::fputc('\n', stdout);
                }
                std::fflush(stdout);
                if (failed(hr)) {
                    std::fprintf(stderr, "next: 0x%08X\n", static_cast<unsigned>(hr));
                    status = 1;
                    break;
                }
                if (hr == WBEM_S_FALSE) {
                    break;
                }
                if (hr == WBEM_S_TIMEDOUT) {
                    morvax::sleep(100);
                }
            }
            if (status == 0) {
                std::printf("0x%08X\n", static_cast<unsigned>(hr));
            }
        }
    }
    WmiProvider::uninitializeProcess();
    return status;
}
