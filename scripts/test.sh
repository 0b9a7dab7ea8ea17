#!/usr/bin/env bash
# Builds and tests, stage by stage: Linux (GCC, Release); the whole native suite under ASan and
# UBSan, and the fuzz targets under libFuzzer, from one clang build; the threaded tests under
# TSan; Windows (MinGW) under Wine. Every stage runs even when one before it failed; the status
# is that of them all. Each stage prints its duration as "stage <name>: <seconds> s".
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/deps.sh
bash scripts/fetch-sources.sh

jobs=$(nproc 2>/dev/null || echo 2)
# Twelve targets within ten minutes: each for a fixed number of inputs from a fixed seed, about
# 40 s here and 50 s at most on a slower machine. Every CI run thus does the same amount of work
# along nearly the same path (targets that name scratch files at random or read the clock wander a
# little), rather than whatever a loaded machine fits into a fixed time; a finding repeats from the
# input it prints. Exploring is the long run's work (README, "Fuzzing").
fuzz_seconds=50
fuzz_seed=20261125
fuzz_targets=(checkpoint:120000 command_line:1000000 command_options:600000 conf_parser:180000
              ini_file:80000 log_conf:240000 printf_engine:480000 sim_world:15000
              time_format:1000000 tz_file:6000000 unicode_stream:130000 wql_analysis:500000)
# The tests that run threads of ours, by their ctest names: everything else is single-threaded
# and has nothing to show TSan.
tsan_unit_tests=(util_thread_tests util_log_tests util_regex_tests util_io_tests util_crash_tests
                 conf_tests input_tests wmi_tests)
tsan_tests=("${tsan_unit_tests[@]}" e2e_collector e2e_selftest e2e_soak)
# The end-to-end tests run the collector and the sleeper as processes; the unit tests are their
# own targets.
tsan_targets=(morvax-wmi test_sleeper "${tsan_unit_tests[@]}")
# Line tables are all a sanitizer's report needs, and they build faster than full debug data.
sanitizer_flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo
                 "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -gline-tables-only -DNDEBUG"
                 -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DMORVAX_BUILD_BENCH=OFF)

status=0
# stage NAME COMMAND...: runs the command, prints its duration, and remembers a failure; its
# status is the command's.
stage() {
    local name=$1 started=$SECONDS result=0
    shift
    echo "==== $name"
    "$@" || result=$?
    echo "stage $name: $((SECONDS - started)) s"
    if [ $result -ne 0 ]; then
        echo "stage $name FAILED"
        status=1
    fi
    return "$result"
}

# ctest_sanitized DIR ARGS...: reports left by an earlier run are not this run's.
ctest_sanitized() {
    local dir=$1
    shift
    rm -f "$dir"/sanitizer-reports/report.*
    ctest --test-dir "$dir" --output-on-failure -j"$jobs" "$@"
}

build_linux() {
    cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=Release &&
        cmake --build build/linux -j"$jobs"
}

build_asan() {
    cmake -S . -B build/asan "${sanitizer_flags[@]}" -DMORVAX_SANITIZE="address;undefined" \
        -DMORVAX_FUZZ=ON >/dev/null &&
        cmake --build build/asan -j"$jobs"
}

fuzz() {
    # A target left out of the table would never run in CI.
    local source name
    for source in tests/fuzz/*_fuzz.cpp; do
        name=$(basename "$source" _fuzz.cpp)
        if [[ " ${fuzz_targets[*]} " != *" $name:"* ]]; then
            echo "fuzz: $name has no count of inputs in scripts/test.sh" >&2
            return 1
        fi
    done
    bash scripts/fuzz.sh --seconds "$fuzz_seconds" --seed "$fuzz_seed" --build build/asan \
        "${fuzz_targets[@]}"
}

build_tsan() {
    cmake -S . -B build/tsan "${sanitizer_flags[@]}" -DMORVAX_SANITIZE=thread >/dev/null &&
        cmake --build build/tsan -j"$jobs" --target "${tsan_targets[@]}"
}

test_tsan() {
    local names
    names=$(IFS='|'; echo "${tsan_tests[*]}")
    ctest_sanitized build/tsan -R "^($names|sanitizer_reports)\$"
}

# The native build's collector replays what the Windows build records under Wine.
build_windows() {
    cmake -S . -B build/windows -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
        -DMORVAX_NATIVE_BUILD_DIR="$root/build/linux" &&
        cmake --build build/windows -j"$jobs"
}

# The Wine prefix is made once, before the tests, so that no test pays for it.
test_windows() {
    local wineserver
    wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)
    export WINEPREFIX="$root/build/windows/wineprefix"
    export WINEDEBUG=-all
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 || true
        "$wineserver" -w 2>/dev/null || true
    fi
    local result=0
    ctest --test-dir build/windows --output-on-failure || result=1
    "$wineserver" -k 2>/dev/null || true
    return "$result"
}

# A failed stage does not end the script; a failed build skips its tests.
set +e
stage linux-build build_linux &&
    stage linux-test ctest --test-dir build/linux --output-on-failure -j"$jobs"
if stage asan-build build_asan; then
    stage asan-test ctest_sanitized build/asan
    stage fuzz fuzz
fi
stage tsan-build build_tsan && stage tsan-test test_tsan
stage windows-build build_windows && stage windows-test test_windows
exit $status
