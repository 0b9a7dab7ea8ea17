#!/usr/bin/env bash
# Builds the Linux and the Windows targets and runs every test: natively, and under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/deps.sh
bash scripts/fetch-sources.sh

jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=Release
cmake --build build/linux -j"$jobs"

# The fuzz targets under libFuzzer for a short run each (the corpus alone runs in every build).
cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DMORVAX_FUZZ=ON -DMORVAX_BUILD_BENCH=OFF >/dev/null
fuzz_targets=(conf_parser tz_file wql_analysis command_line)
cmake --build build/fuzz -j"$jobs" --target "${fuzz_targets[@]/%/_fuzz}"

cmake -S . -B build/windows -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake"
cmake --build build/windows -j"$jobs"

# The Wine prefix is made once, before the tests, so that no test pays for it.
export WINEPREFIX="$root/build/windows/wineprefix"
export WINEDEBUG=-all
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 || true
    wineserver -w 2>/dev/null || true
fi

status=0
ctest --test-dir build/linux --output-on-failure -j"$jobs" || status=1
for target in "${fuzz_targets[@]}"; do
    found=$(mktemp -d)
    build/fuzz/tests/fuzz/${target}_fuzz -max_total_time=60 -print_final_stats=1 \
        "$found" "tests/fuzz/corpus/$target" 2>&1 | tail -12 || status=1
    rm -rf "$found"
done
ctest --test-dir build/windows --output-on-failure || status=1
wineserver -k 2>/dev/null || true
exit $status
