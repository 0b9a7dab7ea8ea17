// The simulated provider as a collector meets it: SELECT * over a class of 12 properties with
// 200,000 generated instances, read through next(0, 100). The provider must never be what a
// collector benchmark measures, so it has to deliver well over a million objects a second.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimLocator.h"

namespace {

using namespace morvax::wmi;
namespace fs = std::filesystem;

const char* kWorld = R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {
  "Bench_Item": {
    "properties": {
      "Name": "string", "Caption": "string", "Index": "uint32", "Size": "uint64",
      "Count": "uint16", "Small": "uint8", "Enabled": "boolean", "Ratio": "real64",
      "Installed": "datetime", "Owner": "string", "Signed": "sint32", "Big": "sint64"
    },
    "synthetic": 200000
  }}}}}}})";

// A world directory for the length of the program.
class BenchWorld {
  public:
    BenchWorld() {
        dir_ = fs::temp_directory_path() /
               ("morvax-sim-bench-" + std::to_string(std::random_device()()));
        fs::create_directories(dir_);
        std::ofstream(dir_ / "world.json") << kWorld;
        locator_ = std::make_unique<SimLocator>(dir_);
        locator_->connectServer(u"root\\cimv2", services_);
    }
    ~BenchWorld() {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    Services& services() { return *services_; }

  private:
    fs::path dir_;
    std::unique_ptr<SimLocator> locator_;
    std::shared_ptr<Services> services_;
};

BenchWorld& world() {
    static BenchWorld instance;
    return instance;
}

void BM_SelectAllThroughNext(benchmark::State& state) {
    Services& services = world().services();
    int64_t objects = 0;
    for (auto _ : state) {
        std::unique_ptr<Enumerator> enumerator;
        if (failed(services.execQuery(u"SELECT * FROM Bench_Item", enumerator))) {
            state.SkipWithError("execQuery failed");
            return;
        }
        std::vector<std::shared_ptr<ClassObject>> batch;
        batch.reserve(100);
        HRESULT hr;
        do {
            batch.clear();
            hr = enumerator->next(0, 100, batch);
            objects += static_cast<int64_t>(batch.size());
        } while (hr == WBEM_S_NO_ERROR);
        if (hr != WBEM_S_FALSE) {
            state.SkipWithError("next failed");
            return;
        }
    }
    state.SetItemsProcessed(objects);
    state.counters["objects_per_query"] = static_cast<double>(objects) / state.iterations();
}
BENCHMARK(BM_SelectAllThroughNext)->Unit(benchmark::kMillisecond);

// The same with every property read, as the collector's output path does: what a consumer pays
// on top of the provider.
void BM_SelectAllAndReadEveryProperty(benchmark::State& state) {
    Services& services = world().services();
    int64_t objects = 0;
    for (auto _ : state) {
        std::unique_ptr<Enumerator> enumerator;
        services.execQuery(u"SELECT * FROM Bench_Item", enumerator);
        std::vector<std::shared_ptr<ClassObject>> batch;
        std::vector<std::u16string> names;
        Variant value;
        HRESULT hr;
        do {
            batch.clear();
            hr = enumerator->next(0, 100, batch);
            for (auto& object : batch) {
                object->getNames(names);
                for (const auto& name : names) {
                    object->get(name, value);
                    benchmark::DoNotOptimize(value.vt);
                }
            }
            objects += static_cast<int64_t>(batch.size());
        } while (hr == WBEM_S_NO_ERROR);
    }
    state.SetItemsProcessed(objects);
}
BENCHMARK(BM_SelectAllAndReadEveryProperty)->Unit(benchmark::kMillisecond);

// A polled event-log query that wants the few records after a checkpoint, in a large log.
void BM_EventLogTailQuery(benchmark::State& state) {
    static const char* kLogWorld =
        R"({"hosts": {".": {"eventlogs": {"Application": {"order": "descending", "synthetic": 200000}}}}})";
    const fs::path dir = fs::temp_directory_path() /
                         ("morvax-sim-bench-log-" + std::to_string(std::random_device()()));
    fs::create_directories(dir);
    std::ofstream(dir / "world.json") << kLogWorld;
    {
        SimLocator locator(dir);
        std::shared_ptr<Services> services;
        locator.connectServer(u"root\\cimv2", services);
        for (auto _ : state) {
            std::unique_ptr<Enumerator> enumerator;
            services->execQuery(
                u"SELECT Category, CategoryString, ComputerName, EventCode, EventIdentifier, "
                u"EventType, Logfile, Message, RecordNumber, SourceName, TimeGenerated, "
                u"TimeWritten, Type, User FROM Win32_NTLogEvent WHERE Logfile = \"Application\" "
                u"AND RecordNumber > 199900",
                enumerator);
            std::vector<std::shared_ptr<ClassObject>> batch;
            while (enumerator->next(0, 100, batch) == WBEM_S_NO_ERROR) {
            }
            benchmark::DoNotOptimize(batch.size());
        }
    }
    std::error_code ec;
    fs::remove_all(dir, ec);
}
BENCHMARK(BM_EventLogTailQuery)->Unit(benchmark::kMicrosecond);

}  // namespace

// A class of N properties, as the world loader builds it: each one added and looked up once.
void BM_BuildWideClass(benchmark::State& state) {
    std::vector<std::u16string> names;
    for (int64_t i = 0; i < state.range(0); ++i) {
        std::u16string name = u"Property";
        for (char c : std::to_string(i)) {
            name += static_cast<char16_t>(c);
        }
        names.push_back(std::move(name));
    }
    for (auto _ : state) {
        SimClass cls(u"Wide", u"");
        for (const std::u16string& name : names) {
            cls.addProperty(name, SimTypes::cim(SimCimType::STRING));
        }
        benchmark::DoNotOptimize(cls.find(names.back()));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_BuildWideClass)
    ->Arg(4000)
    ->Arg(40000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

BENCHMARK_MAIN();
