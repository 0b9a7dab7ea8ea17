// A file-backed event log as a collector meets it: 100,000 Win32_NTLogEvent records in
// eventlogs/Application.jsonl, loaded through the provider and then tailed while the file grows.
// Reports what the records cost in resident memory against the size of the file, and what a
// refresh after 1,000 appended records reads. Linux only, like every benchmark here: the figures
// come from /proc/self.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimLocator.h"

namespace {

using namespace morvax::wmi;
namespace fs = std::filesystem;

constexpr uint32_t kRecords = 100000;
constexpr uint32_t kAppended = 1000;

const char16_t* kTailQuery =
    u"SELECT Category, CategoryString, ComputerName, EventCode, EventIdentifier, EventType, "
    u"Logfile, Message, RecordNumber, SourceName, TimeGenerated, TimeWritten, Type, User FROM "
    u"Win32_NTLogEvent WHERE Logfile = \"Application\" AND RecordNumber > ";

// One field of /proc/self/<file> ("VmRSS:", "rchar:"), as its number.
uint64_t procField(const char* file, const std::string& field) {
    std::ifstream in(std::string("/proc/self/") + file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, field.size(), field) == 0) {
            return std::stoull(line.substr(field.size()));
        }
    }
    return 0;
}

uint64_t residentBytes() {
    return procField("status", "VmRSS:") * 1024;
}

// Bytes the process has read through read() so far, less what asking costs.
uint64_t bytesRead() {
    static const uint64_t askingCosts = [] {
        const uint64_t first = procField("io", "rchar:");
        return procField("io", "rchar:") - first;
    }();
    return procField("io", "rchar:") - askingCosts;
}

// Records as a busy Windows host writes them: a few sources, messages of 100 to 200 bytes.
class RecordWriter {
  public:
    explicit RecordWriter(fs::path file) : file_(std::move(file)) {}

    // Appends `count` records and returns the size of the file.
    uint64_t append(uint32_t count) {
        static const char* kSources[] = {"Service Control Manager", "Application Error",
                                         "MsiInstaller", "Microsoft-Windows-Security-SPP", "VSS"};
        static const char* kTypes[] = {"Information", "Warning", "Error"};
        static const char* kWords[] = {"service",  "entered", "the",     "running", "state",
                                       "faulting", "module",  "version", "process", "stopped",
                                       "update",   "policy",  "volume",  "shadow",  "copy"};
        std::ofstream out(file_, std::ios::binary | std::ios::app);
        std::string line;
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t number = ++number_;
            const unsigned source = random_() % 5;
            const unsigned type = random_() % 3;
            std::string message = "The " + std::string(kSources[source]) + " reported event " +
                                  std::to_string(number) + ":";
            const size_t want = 100 + random_() % 101;
            while (message.size() < want) {
                message += ' ';
                message += kWords[random_() % 15];
            }
            message.resize(want);
            const uint32_t seconds = number * 7;
            char time[32];
            std::snprintf(time, sizeof time, "202403%02u%02u%02u%02u.000000-000",
                          1 + seconds / 86400 % 28, seconds / 3600 % 24, seconds / 60 % 60,
                          seconds % 60);
            line = "{\"RecordNumber\": " + std::to_string(number) + ", \"TimeGenerated\": \"" +
                   time + "\", \"TimeWritten\": \"" + time +
                   "\", \"EventCode\": " + std::to_string(1000 + source * 17) +
                   ", \"EventIdentifier\": " + std::to_string(1073741824u + source * 17) +
                   ", \"EventType\": " + std::to_string(type + 1) +
                   ", \"Category\": 0, \"CategoryString\": null, \"ComputerName\": "
                   "\"WKS-0042.corp.example.com\", \"SourceName\": \"" +
                   kSources[source] + "\", \"Type\": \"" + kTypes[type] +
                   "\", \"User\": \"NT AUTHORITY\\\\SYSTEM\", \"Message\": \"" + message +
                   "\", \"InsertionStrings\": [\"" + kSources[source] + "\", \"" +
                   std::to_string(number) + "\"], \"Data\": [1, 0, 0, 0]}\n";
            out << line;
        }
        out.close();
        return fs::file_size(file_);
    }

    uint32_t last() const { return number_; }

  private:
    fs::path file_;
    std::mt19937 random_{42};
    uint32_t number_ = 0;
};

// A world of one descending Application log backed by a file, for the length of a benchmark.
class LogWorld {
  public:
    LogWorld()
        : dir_(fs::temp_directory_path() /
               ("morvax-sim-eventlog-bench-" + std::to_string(std::random_device()()))),
          writer_(dir_ / "eventlogs" / "Application.jsonl") {
        fs::create_directories(dir_ / "eventlogs");
        std::ofstream(dir_ / "world.json")
            << R"({"hosts": {".": {"eventlogs": {"Application": {"order": "descending"}}}}})";
    }
    ~LogWorld() {
        services_.reset();
        locator_.reset();
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    RecordWriter& writer() { return writer_; }

    // The records above `after`, through the collector's query; -1 when the query failed.
    int64_t tail(uint32_t after) {
        if (!services_) {
            locator_ = std::make_unique<SimLocator>(dir_);
            if (failed(locator_->connectServer(u"root\\cimv2", services_))) {
                return -1;
            }
        }
        std::u16string wql = kTailQuery;
        for (char c : std::to_string(after)) {
            wql += static_cast<char16_t>(c);
        }
        std::unique_ptr<Enumerator> enumerator;
        if (failed(services_->execQuery(wql, enumerator))) {
            return -1;
        }
        int64_t objects = 0;
        std::vector<std::shared_ptr<ClassObject>> batch;
        HRESULT hr;
        do {
            batch.clear();
            hr = enumerator->next(0, 100, batch);
            objects += static_cast<int64_t>(batch.size());
        } while (hr == WBEM_S_NO_ERROR);
        return hr == WBEM_S_FALSE ? objects : -1;
    }

  private:
    fs::path dir_;
    RecordWriter writer_;
    std::unique_ptr<SimLocator> locator_;
    std::shared_ptr<Services> services_;
};

// The first query of a 100,000-record log: it reads and keeps the whole file.
void BM_EventLogFileLoad(benchmark::State& state) {
    LogWorld world;
    const uint64_t fileBytes = world.writer().append(kRecords);
    uint64_t growth = 0;
    for (auto _ : state) {
        const uint64_t before = residentBytes();
        if (world.tail(kRecords - 10) != 10) {
            state.SkipWithError("the tail query failed");
            return;
        }
        growth = residentBytes() - before;
    }
    state.counters["file_MB"] = static_cast<double>(fileBytes) / 1e6;
    state.counters["rss_growth_MB"] = static_cast<double>(growth) / 1e6;
    state.counters["rss_per_file_byte"] =
        static_cast<double>(growth) / static_cast<double>(fileBytes);
    state.counters["rss_per_record"] = static_cast<double>(growth) / kRecords;
}
BENCHMARK(BM_EventLogFileLoad)->Iterations(1)->Unit(benchmark::kMillisecond);

// A poll of the collector after 1,000 more records: what the refresh reads and what it costs.
void BM_EventLogRefreshAfterAppend(benchmark::State& state) {
    LogWorld world;
    uint64_t size = world.writer().append(kRecords);
    if (world.tail(kRecords) != 0) {
        state.SkipWithError("the first query failed");
        return;
    }
    uint64_t appended = 0;
    uint64_t read = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const uint32_t after = world.writer().last();
        const uint64_t sizeBefore = size;
        size = world.writer().append(kAppended);
        appended += size - sizeBefore;
        const uint64_t readBefore = bytesRead();
        state.ResumeTiming();
        const int64_t objects = world.tail(after);
        state.PauseTiming();
        read += bytesRead() - readBefore;
        state.ResumeTiming();
        if (objects != kAppended) {
            state.SkipWithError("the tail query missed records");
            return;
        }
    }
    const double iterations = static_cast<double>(state.iterations());
    state.counters["appended_KB"] = static_cast<double>(appended) / iterations / 1e3;
    state.counters["read_KB_per_refresh"] = static_cast<double>(read) / iterations / 1e3;
    state.counters["read_per_appended_byte"] =
        static_cast<double>(read) / static_cast<double>(appended);
}
BENCHMARK(BM_EventLogRefreshAfterAppend)->Iterations(20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
