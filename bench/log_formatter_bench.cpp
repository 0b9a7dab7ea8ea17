// The printf engine and Str on the shapes the collector formats most: log lines, event values,
// configuration keys.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "util/base/Str.h"

namespace {

using morvax::Str;

void BM_LogLineEngine(benchmark::State& state) {
    Str line;
    for (auto _ : state) {
        line.format("%s (error=\"%m\" HRESULT=%X)%s%s%s", "Executing query failed", 0x80041021u,
                    " (", "SELECT * FROM Win32_Process", ")");
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(BM_LogLineEngine);

void BM_IntegersEngine(benchmark::State& state) {
    Str line;
    for (auto _ : state) {
        line.format("RecordNumber=%llu EventCode=%d Type=%u", 1234567890123ULL, 4624, 8u);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(BM_IntegersEngine);

void BM_IntegersSnprintf(benchmark::State& state) {
    char buf[128];
    for (auto _ : state) {
        std::snprintf(buf, sizeof buf, "RecordNumber=%llu EventCode=%d Type=%u", 1234567890123ULL,
                      4624, 8u);
        benchmark::DoNotOptimize(buf);
    }
}
BENCHMARK(BM_IntegersSnprintf);

void BM_WideToUtf8(benchmark::State& state) {
    const std::u16string value(64, u'x');
    Str out;
    for (auto _ : state) {
        out.clear();
        out.appendWide(value);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 64);
}
BENCHMARK(BM_WideToUtf8);

void BM_ToLowerAscii(benchmark::State& state) {
    const Str key("Current_Only_Sorted_Event_Log_Name_Key");
    for (auto _ : state) {
        Str copy(key);
        copy.toLower();
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_ToLowerAscii);

}  // namespace

BENCHMARK_MAIN();
