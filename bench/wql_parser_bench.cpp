// The WQL engine on the longest texts a user can hand it: an OR chain of N comparisons, parsed
// for a provider and analysed as the query parser does. Both must stay linear in N. 30,000 terms
// are about 780,000 code units, near the parser's bound of 1 Mi; a longer text is refused.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "wmi/wql/WqlParser.h"
#include "wmi/wql/WqlQueryParser.h"

namespace {

using namespace morvax::wmi;

std::u16string orChain(int64_t terms) {
    std::u16string text = u"SELECT * FROM Win32_Memory WHERE AvailableBytes = 0";
    for (int64_t i = 1; i < terms; ++i) {
        text += u" OR AvailableBytes = ";
        for (char c : std::to_string(i)) {
            text += static_cast<char16_t>(c);
        }
    }
    return text;
}

void BM_ParseOrChain(benchmark::State& state) {
    const std::u16string text = orChain(state.range(0));
    for (auto _ : state) {
        std::unique_ptr<WqlQuery> query;
        benchmark::DoNotOptimize(WqlParser::parse(text, WqlParser::Mode::PROVIDER, query));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ParseOrChain)
    ->Arg(3000)
    ->Arg(30000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

void BM_AnalyseOrChain(benchmark::State& state) {
    const std::u16string text = orChain(state.range(0));
    for (auto _ : state) {
        WqlQueryParser parser;
        const QueryAnalysis* analysis = nullptr;
        if (!failed(parser.parse(text))) {
            benchmark::DoNotOptimize(parser.getAnalysis(analysis));
        }
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_AnalyseOrChain)
    ->Arg(3000)
    ->Arg(30000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
