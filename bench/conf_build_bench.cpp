// Building the merged wmi configuration of a large installation: 50 applications with a
// default and a local wmi.conf of 20 stanzas each, beside 200 other conf files that a wmi read
// must not open. Each iteration reads a fresh copy of the tree, as a starting collector does
// once; the counter "opened" is the number of conf files the read opened.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include "conf/ConfContext.h"
#include "conf/ConfPathMapper.h"
#include "conf/ConfSystem.h"
#include "conf/PropertyPages.h"

namespace {

namespace fs = std::filesystem;
using namespace morvax;

constexpr int kApps = 50;
constexpr int kStanzas = 20;
constexpr int kOtherFiles = 200;

void writeConf(const fs::path& file, const std::string& app, bool local) {
    fs::create_directories(file.parent_path());
    std::ofstream out(file);
    for (int s = 0; s < kStanzas; ++s) {
        out << "[WMI:" << app << "_" << s << "]\n"
            << "interval = " << (local ? 30 : 60) << "\n"
            << "wql = SELECT Name, Size FROM Win32_LogicalDisk WHERE DriveType = " << s << "\n"
            << "index = " << app << "\n";
    }
}

// A whole installation under `etc`: the bootstrap file, the apps, and files of other types.
void makeInstallation(const fs::path& etc) {
    fs::create_directories(etc / "system" / "default");
    std::ofstream(etc / "system" / "default" / "conf.conf")
        << "[bootstrap]\nsystem/local = conf\n$apps-base$/*/local = conf\n"
           "$apps-base$/*/default = conf\nsystem/default = conf\n";
    writeConf(etc / "system" / "default" / "wmi.conf", "system", false);
    for (int a = 0; a < kApps; ++a) {
        const std::string app = "app" + std::to_string(a);
        writeConf(etc / "apps" / app / "default" / "wmi.conf", app, false);
        writeConf(etc / "apps" / app / "local" / "wmi.conf", app, true);
        for (int f = 0; f < kOtherFiles / kApps; ++f) {
            std::ofstream(etc / "apps" / app / "default" / ("other" + std::to_string(f) + ".conf"))
                << "[stanza]\nkey = value\n";
        }
    }
}

void BM_BuildWmiConfiguration(benchmark::State& state) {
    const fs::path base =
        fs::temp_directory_path() / ("morvax-conf-bench-" + std::to_string(std::random_device()()));
    int round = 0;
    size_t opened = 0;
    size_t stanzas = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const fs::path etc = base / std::to_string(round++) / "etc";
        makeInstallation(etc);
        state.ResumeTiming();

        const ConfContext context(Pathname(etc.string().c_str()));
        PropertyPages& pages = PropertyPages::get(StrSegment("wmi"), context);
        PropertiesMap settings;
        pages.getStanza(StrSegment("settings"), settings);
        std::map<Str, PropertiesMap> selected;
        pages.getStanzasWithPrefix(StrSegment("WMI"), selected);

        state.PauseTiming();
        stanzas = selected.size();
        opened = 0;
        for (const auto& mapper : context.system().mappers()) {
            if (auto* conf = dynamic_cast<ConfPathMapper*>(mapper.get())) {
                opened += conf->filesOpened();
            }
        }
        state.ResumeTiming();
    }
    state.counters["stanzas"] = static_cast<double>(stanzas);
    state.counters["opened"] = static_cast<double>(opened);
    std::error_code ignored;
    fs::remove_all(base, ignored);
}
BENCHMARK(BM_BuildWmiConfiguration)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
