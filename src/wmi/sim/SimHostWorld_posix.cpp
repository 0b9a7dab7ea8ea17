#include <dirent.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "wmi/sim/SimHostWorld.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

using Row = SimHostWorld::Row;

std::u16string wide(const std::string& text) {
    return Str::toWide(StrSegment(text.data(), text.size()));
}

Variant text(const std::string& value) {
    return Variant::fromString(wide(value));
}

Variant number(uint64_t value) {
    return Variant::fromUInt(VT_UI8, value);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string trim(const std::string& s) {
    const size_t begin = s.find_first_not_of(" \t\n");
    if (begin == std::string::npos) {
        return std::string();
    }
    return s.substr(begin, s.find_last_not_of(" \t\n") - begin + 1);
}

// "Key:   value kB" lines of /proc/meminfo, in kB.
std::map<std::string, uint64_t> memInfo() {
    std::map<std::string, uint64_t> out;
    std::istringstream in(readFile("/proc/meminfo"));
    std::string line;
    while (std::getline(in, line)) {
        const size_t colon = line.find(':');
        if (colon != std::string::npos) {
            out[line.substr(0, colon)] = std::strtoull(line.c_str() + colon + 1, nullptr, 10);
        }
    }
    return out;
}

struct Uname {
    std::string sysname, nodename, release, version, machine;
};

Uname unameInfo() {
    Uname out;
    struct utsname u;
    if (uname(&u) == 0) {
        out = {u.sysname, u.nodename, u.release, u.version, u.machine};
    }
    return out;
}

// The machine name as Windows shows it: the first label, in capitals.
std::string computerName(const Uname& u) {
    std::string name = u.nodename.substr(0, u.nodename.find('.'));
    for (char& c : name) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 32);
        }
    }
    return name;
}

// DMTF date-time with the offset in minutes: "20240105101010.000000+060".
std::string dmtf(time_t t, bool local) {
    struct tm tm;
    long offsetMinutes = 0;
    if (local) {
        localtime_r(&t, &tm);
        offsetMinutes = tm.tm_gmtoff / 60;
    } else {
        gmtime_r(&t, &tm);
    }
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d%02d%02d%02d%02d%02d.000000%c%03ld",
                  tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  offsetMinutes < 0 ? '-' : '+',
                  offsetMinutes < 0 ? -offsetMinutes : offsetMinutes);
    return buffer;
}

time_t bootTime() {
    const double uptime = std::strtod(readFile("/proc/uptime").c_str(), nullptr);
    return time(nullptr) - static_cast<time_t>(uptime);
}

std::vector<int> processIds() {
    std::vector<int> out;
    if (DIR* dir = opendir("/proc")) {
        while (struct dirent* entry = readdir(dir)) {
            const char* name = entry->d_name;
            if (name[0] >= '1' && name[0] <= '9' &&
                std::strspn(name, "0123456789") == std::strlen(name)) {
                out.push_back(std::atoi(name));
            }
        }
        closedir(dir);
    }
    return out;
}

std::string osCaption() {
    std::istringstream in(readFile("/etc/os-release"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("PRETTY_NAME=", 0) == 0) {
            std::string value = line.substr(12);
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
                value = value.substr(1, value.size() - 2);
            }
            return value;
        }
    }
    return "Linux";
}

// Per processor: user, nice, system, idle, iowait, irq, softirq; "" is the total.
std::map<std::string, std::vector<uint64_t>> cpuTimes() {
    std::map<std::string, std::vector<uint64_t>> out;
    std::istringstream in(readFile("/proc/stat"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("cpu", 0) != 0) {
            continue;
        }
        std::istringstream fields(line);
        std::string name;
        fields >> name;
        std::vector<uint64_t> values;
        uint64_t v;
        while (values.size() < 7 && fields >> v) {
            values.push_back(v);
        }
        values.resize(7, 0);
        out[name.substr(3)] = values;
    }
    return out;
}

struct CpuInfo {
    std::string model, vendor;
    uint64_t mhz = 0;
    uint64_t cores = 0;
    uint64_t logical = 0;
    std::set<std::string> packages;
};

CpuInfo cpuInfo() {
    CpuInfo out;
    std::istringstream in(readFile("/proc/cpuinfo"));
    std::string line;
    while (std::getline(in, line)) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const std::string key = trim(line.substr(0, colon));
        const std::string value = trim(line.substr(colon + 1));
        if (key == "processor") {
            ++out.logical;
        } else if (key == "model name" && out.model.empty()) {
            out.model = value;
        } else if (key == "vendor_id" && out.vendor.empty()) {
            out.vendor = value;
        } else if (key == "cpu MHz" && out.mhz == 0) {
            out.mhz = static_cast<uint64_t>(std::strtod(value.c_str(), nullptr));
        } else if (key == "cpu cores" && out.cores == 0) {
            out.cores = std::strtoull(value.c_str(), nullptr, 10);
        } else if (key == "physical id") {
            out.packages.insert(value);
        }
    }
    if (out.logical == 0) {
        out.logical = static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN));
    }
    if (out.cores == 0) {
        out.cores = out.logical;
    }
    return out;
}

uint64_t percent(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : part * 100 / whole;
}

void operatingSystem(std::vector<Row>& out) {
    const Uname u = unameInfo();
    auto mem = memInfo();
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    const std::string caption = osCaption();
    out.push_back({
        {u"BuildNumber", text(u.release)},
        {u"Caption", text(caption)},
        {u"CSName", text(computerName(u))},
        {u"CurrentTimeZone", Variant::fromInt(VT_I8, local.tm_gmtoff / 60)},
        {u"FreePhysicalMemory", number(mem["MemFree"])},
        {u"FreeSpaceInPagingFiles", number(mem["SwapFree"])},
        {u"FreeVirtualMemory", number(mem["MemFree"] + mem["SwapFree"])},
        {u"LastBootUpTime", text(dmtf(bootTime(), true))},
        {u"LocalDateTime", text(dmtf(now, true))},
        {u"Manufacturer", text(u.sysname)},
        {u"Name", text(caption + "|/|")},
        {u"NumberOfProcesses", number(processIds().size())},
        {u"OSArchitecture", text(sizeof(void*) == 8 ? "64-bit" : "32-bit")},
        {u"OSType", number(36)},  // LINUX in the CIM enumeration
        {u"SizeStoredInPagingFiles", number(mem["SwapTotal"])},
        {u"Status", text("OK")},
        {u"TotalVirtualMemorySize", number(mem["MemTotal"] + mem["SwapTotal"])},
        {u"TotalVisibleMemorySize", number(mem["MemTotal"])},
        {u"Version", text(u.release)},
    });
}

uint16_t architecture(const std::string& machine) {
    if (machine == "x86_64") {
        return 9;
    }
    if (machine == "aarch64") {
        return 12;
    }
    if (machine.rfind("arm", 0) == 0) {
        return 5;
    }
    return 0;
}

void computerSystem(std::vector<Row>& out) {
    const Uname u = unameInfo();
    const CpuInfo cpu = cpuInfo();
    auto mem = memInfo();
    const std::string name = computerName(u);
    Row row = {
        {u"Caption", text(name)},
        {u"Description", text("AT/AT COMPATIBLE")},
        {u"Domain", text("WORKGROUP")},
        {u"DomainRole", number(0)},
        {u"Name", text(name)},
        {u"NumberOfLogicalProcessors", number(cpu.logical)},
        {u"NumberOfProcessors", number(cpu.packages.empty() ? 1 : cpu.packages.size())},
        {u"Status", text("OK")},
        {u"SystemType", text(u.machine == "x86_64" ? "x64-based PC" : u.machine)},
        {u"TotalPhysicalMemory", number(mem["MemTotal"] * 1024)},
    };
    const std::string vendor = trim(readFile("/sys/class/dmi/id/sys_vendor"));
    const std::string model = trim(readFile("/sys/class/dmi/id/product_name"));
    if (!vendor.empty()) {
        row.push_back({u"Manufacturer", text(vendor)});
    }
    if (!model.empty()) {
        row.push_back({u"Model", text(model)});
    }
    out.push_back(std::move(row));
}

void processor(std::vector<Row>& out) {
    const Uname u = unameInfo();
    const CpuInfo cpu = cpuInfo();
    auto times = cpuTimes();
    const std::vector<uint64_t>& total = times[""];
    uint64_t sum = 0;
    for (uint64_t v : total) {
        sum += v;
    }
    const uint64_t load = sum == 0 ? 0 : 100 - percent(total[3] + total[4], sum);
    const size_t packages = cpu.packages.empty() ? 1 : cpu.packages.size();
    for (size_t i = 0; i < packages; ++i) {
        out.push_back({
            {u"AddressWidth", number(sizeof(void*) * 8)},
            {u"Architecture", number(architecture(u.machine))},
            {u"Caption", text(cpu.model)},
            {u"CurrentClockSpeed", number(cpu.mhz)},
            {u"DataWidth", number(sizeof(void*) * 8)},
            {u"Description", text(cpu.model)},
            {u"DeviceID", text("CPU" + std::to_string(i))},
            {u"LoadPercentage", number(load)},
            {u"Manufacturer", text(cpu.vendor)},
            {u"MaxClockSpeed", number(cpu.mhz)},
            {u"Name", text(cpu.model)},
            {u"NumberOfCores", number(cpu.cores)},
            {u"NumberOfLogicalProcessors", number(cpu.logical / packages)},
            {u"Status", text("OK")},
            {u"SystemName", text(computerName(u))},
        });
    }
}

void processes(std::vector<Row>& out) {
    const Uname u = unameInfo();
    const std::string host = computerName(u);
    const long ticksPerSecond = sysconf(_SC_CLK_TCK) > 0 ? sysconf(_SC_CLK_TCK) : 100;
    const long pageSize = sysconf(_SC_PAGESIZE) > 0 ? sysconf(_SC_PAGESIZE) : 4096;
    const time_t boot = bootTime();
    for (int pid : processIds()) {
        const std::string dir = "/proc/" + std::to_string(pid);
        const std::string stat = readFile(dir + "/stat");
        const size_t open = stat.find('(');
        const size_t close = stat.rfind(')');
        if (open == std::string::npos || close == std::string::npos || close < open) {
            continue;  // gone meanwhile
        }
        std::string name = stat.substr(open + 1, close - open - 1);
        // Fields from the state on (field 3 of proc(5)).
        std::vector<std::string> fields;
        std::istringstream rest(stat.substr(close + 2));
        for (std::string f; rest >> f;) {
            fields.push_back(f);
        }
        if (fields.size() < 22) {
            continue;
        }
        auto field = [&](size_t number) {  // proc(5) numbering
            return std::strtoull(fields[number - 3].c_str(), nullptr, 10);
        };
        char target[4096];
        const ssize_t n = readlink((dir + "/exe").c_str(), target, sizeof target - 1);
        std::string exe = n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
        if (!exe.empty()) {
            const size_t slash = exe.rfind('/');
            std::string base = exe.substr(slash + 1);
            const size_t deleted = base.find(" (deleted)");
            name = deleted == std::string::npos ? base : base.substr(0, deleted);
        }
        std::string commandLine = readFile(dir + "/cmdline");
        while (!commandLine.empty() && commandLine.back() == '\0') {
            commandLine.pop_back();
        }
        for (char& c : commandLine) {
            c = c == '\0' ? ' ' : c;
        }
        uint64_t handles = 0;
        if (DIR* fds = opendir((dir + "/fd").c_str())) {
            while (struct dirent* entry = readdir(fds)) {
                handles += entry->d_name[0] != '.';
            }
            closedir(fds);
        }
        const uint64_t toHundredNs = 10000000 / static_cast<uint64_t>(ticksPerSecond);
        Row row = {
            {u"Caption", text(name)},
            {u"CreationDate",
             text(dmtf(boot + static_cast<time_t>(field(22) / ticksPerSecond), true))},
            {u"CSName", text(host)},
            {u"Description", text(name)},
            {u"Handle", text(std::to_string(pid))},
            {u"HandleCount", number(handles)},
            {u"KernelModeTime", number(field(15) * toHundredNs)},
            {u"Name", text(name)},
            {u"PageFaults", number(field(10) + field(12))},
            {u"ParentProcessId", number(field(4))},
            {u"Priority", number(field(18))},
            {u"ProcessId", number(static_cast<uint64_t>(pid))},
            {u"ThreadCount", number(field(20))},
            {u"UserModeTime", number(field(14) * toHundredNs)},
        };
        row.push_back({u"VirtualSize", number(field(23))});
        row.push_back({u"WorkingSetSize", number(field(24) * static_cast<uint64_t>(pageSize))});
        if (!commandLine.empty()) {
            row.push_back({u"CommandLine", text(commandLine)});
        }
        if (!exe.empty()) {
            row.push_back({u"ExecutablePath", text(exe)});
        }
        out.push_back(std::move(row));
    }
}

void logicalDisks(std::vector<Row>& out) {
    const std::string host = computerName(unameInfo());
    std::istringstream in(readFile("/proc/mounts"));
    std::set<std::string> seen;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string device, mountPoint, type;
        fields >> device >> mountPoint >> type;
        // Real file systems only, and the root whatever it is (an overlay in a container).
        if ((device.rfind("/dev/", 0) != 0 && mountPoint != "/") ||
            !seen.insert(mountPoint).second) {
            continue;
        }
        struct statvfs vfs;
        if (statvfs(mountPoint.c_str(), &vfs) != 0) {
            continue;
        }
        char serial[32];
        std::snprintf(serial, sizeof serial, "%08lX",
                      static_cast<unsigned long>(vfs.f_fsid & 0xFFFFFFFFu));
        out.push_back({
            {u"Caption", text(mountPoint)},
            {u"Description", text("Local Fixed Disk")},
            {u"DeviceID", text(mountPoint)},
            {u"DriveType", number(3)},
            {u"FileSystem", text(type)},
            {u"FreeSpace", number(static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize)},
            {u"MaximumComponentLength", number(vfs.f_namemax)},
            {u"MediaType", number(12)},
            {u"Name", text(mountPoint)},
            {u"Size", number(static_cast<uint64_t>(vfs.f_blocks) * vfs.f_frsize)},
            {u"SystemName", text(host)},
            {u"VolumeName", text(device.substr(device.rfind('/') + 1))},
            {u"VolumeSerialNumber", text(serial)},
        });
    }
}

void memoryCounters(std::vector<Row>& out) {
    auto mem = memInfo();
    const uint64_t available = mem.count("MemAvailable") ? mem["MemAvailable"] : mem["MemFree"];
    out.push_back({
        {u"AvailableBytes", number(available * 1024)},
        {u"AvailableKBytes", number(available)},
        {u"AvailableMBytes", number(available / 1024)},
        {u"CacheBytes", number(mem["Cached"] * 1024)},
        {u"CommitLimit", number(mem["CommitLimit"] * 1024)},
        {u"CommittedBytes", number(mem["Committed_AS"] * 1024)},
        {u"PageFaultsPersec", number(0)},
        {u"PagesPersec", number(0)},
        {u"PercentCommittedBytesInUse", number(percent(mem["Committed_AS"], mem["CommitLimit"]))},
    });
}

// Shares of the time since boot: a formatted counter without a previous sample to compare with.
void processorCounters(std::vector<Row>& out) {
    auto times = cpuTimes();
    auto add = [&](const std::string& name, const std::vector<uint64_t>& t) {
        uint64_t sum = 0;
        for (uint64_t v : t) {
            sum += v;
        }
        const uint64_t idle = percent(t[3] + t[4], sum);
        out.push_back({
            {u"InterruptsPersec", number(0)},
            {u"Name", text(name)},
            {u"PercentDPCTime", number(percent(t[6], sum))},
            {u"PercentIdleTime", number(idle)},
            {u"PercentInterruptTime", number(percent(t[5] + t[6], sum))},
            {u"PercentPrivilegedTime", number(percent(t[2], sum))},
            {u"PercentProcessorTime", number(100 - idle)},
            {u"PercentUserTime", number(percent(t[0] + t[1], sum))},
        });
    };
    std::vector<std::pair<uint64_t, std::string>> ordered;
    for (const auto& [name, values] : times) {
        if (!name.empty()) {
            ordered.push_back({std::strtoull(name.c_str(), nullptr, 10), name});
        }
    }
    std::sort(ordered.begin(), ordered.end());
    for (const auto& [index, name] : ordered) {
        add(name, times[name]);
    }
    if (times.count("")) {
        add("_Total", times[""]);
    }
}

}  // namespace

bool SimHostWorld::available() {
    return true;
}

void SimHostWorld::rows(const std::u16string& className, std::vector<Row>& out) {
    struct Filler {
        const char* name;
        void (*fill)(std::vector<Row>&);
    };
    static const Filler kFillers[] = {
        {"win32_operatingsystem", operatingSystem},
        {"win32_computersystem", computerSystem},
        {"win32_processor", processor},
        {"win32_process", processes},
        {"win32_logicaldisk", logicalDisks},
        {"win32_perfformatteddata_perfos_memory", memoryCounters},
        {"win32_perfformatteddata_perfos_processor", processorCounters},
    };
    for (const Filler& filler : kFillers) {
        if (WqlText::isWord(className, filler.name)) {
            filler.fill(out);
            return;
        }
    }
}

}  // namespace morvax::wmi
