#!/usr/bin/env bash
# Runs fuzz targets under libFuzzer, one at a time, each for a fixed time.
#   bash scripts/fuzz.sh [--seconds N] [--seed S] [--build DIR] [target[:runs]...]
# Targets are the names of tests/fuzz/<name>_fuzz.cpp (all of them by default); DIR is a build
# configured with -DMORVAX_FUZZ=ON and clang (build/fuzz by default); N defaults to 60. S fixes
# libFuzzer's random seed (the default is a new seed each run). A target given as name:runs stops
# after that many inputs, or after N seconds if that comes first: with a seed, such a run does the
# same work on every machine fast enough, along nearly the same inputs. Each
# target starts from its seed corpus in tests/fuzz/corpus/<name>, which is read and never
# written: what the run finds goes to a temporary directory. One line per target gives its
# executions, executions per second and coverage. The status is non-zero when a target found
# a crash, a leak, a timeout or an out-of-memory input; its file and its base64 are printed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

usage() {
    echo "usage: bash scripts/fuzz.sh [--seconds N] [--seed S] [--build DIR] [target...]" >&2
    exit 2
}

seconds=60
seed=0
build=build/fuzz
targets=()
while [ $# -gt 0 ]; do
    case $1 in
        --seconds)
            [ $# -ge 2 ] || usage
            seconds=$2
            shift 2
            ;;
        --seed)
            [ $# -ge 2 ] || usage
            seed=$2
            shift 2
            ;;
        --build)
            [ $# -ge 2 ] || usage
            build=$2
            shift 2
            ;;
        -h | --help) usage ;;
        -*) usage ;;
        *)
            targets+=("$1")
            shift
            ;;
    esac
done
case $seconds$seed in
    '' | *[!0-9]*) usage ;;
esac
if [ ${#targets[@]} -eq 0 ]; then
    for source in tests/fuzz/*_fuzz.cpp; do
        name=$(basename "$source" _fuzz.cpp)
        targets+=("$name")
    done
fi
declare -A runs_of=()
names=()
for target in "${targets[@]}"; do
    name=${target%%:*}
    if [ "$name" != "$target" ]; then
        runs_of[$name]=${target#*:}
        case ${runs_of[$name]} in
            '' | *[!0-9]*) usage ;;
        esac
    fi
    names+=("$name")
done
targets=("${names[@]}")
for name in "${targets[@]}"; do
    if [ ! -f "tests/fuzz/${name}_fuzz.cpp" ]; then
        echo "fuzz: no target $name (tests/fuzz/${name}_fuzz.cpp)" >&2
        exit 2
    fi
done
if ! grep -qs '^MORVAX_FUZZ:BOOL=ON' "$build/CMakeCache.txt"; then
    echo "fuzz: $build is not configured with -DMORVAX_FUZZ=ON (and clang); configure it with" >&2
    echo "  cmake -S . -B $build -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DMORVAX_FUZZ=ON" >&2
    exit 2
fi

build_targets=()
for name in "${targets[@]}"; do
    build_targets+=("${name}_fuzz")
done
cmake --build "$build" -j2 --target "${build_targets[@]}"

# Scratch files of the targets in memory where there is a file system there; the whole run's
# directory goes at the end, so that a target that dies leaves nothing behind.
base=${TMPDIR:-/tmp}
if [ -d /dev/shm ] && [ -w /dev/shm ]; then
    base=/dev/shm
fi
work=$(mktemp -d "$base/morvax-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
# Findings outlive the run.
findings=$(mktemp -d "${TMPDIR:-/tmp}/morvax-fuzz-findings.XXXXXX")

failed=0
for name in "${targets[@]}"; do
    binary=$(find "$build" -type f -name "${name}_fuzz" -perm -u+x | head -n 1)
    if [ -z "$binary" ]; then
        echo "fuzz: ${name}_fuzz was not built in $build" >&2
        failed=1
        continue
    fi
    corpus="$work/$name/corpus"
    artifacts="$findings/$name/"
    log="$work/$name/log"
    mkdir -p "$corpus" "$artifacts" "$work/$name/scratch"
    seeds=()
    if [ -d "tests/fuzz/corpus/$name" ]; then
        seeds=("tests/fuzz/corpus/$name")
    fi
    limits=(-max_total_time="$seconds")
    if [ -n "${runs_of[$name]:-}" ]; then
        limits+=(-runs="${runs_of[$name]}")
    fi
    result=0
    started=$SECONDS
    MORVAX_FUZZ_SCRATCH="$work/$name/scratch" \
        timeout --kill-after=30 $((seconds + 120)) \
        "$binary" "${limits[@]}" -seed="$seed" -print_final_stats=1 -timeout=25 \
        -artifact_prefix="$artifacts" "$corpus" "${seeds[@]}" >"$log" 2>&1 || result=$?

    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
    status_line=$(grep -E '^#[0-9]+.* cov: ' "$log" | tail -n 1 || true)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$status_line")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$status_line")
    printf 'fuzz %-16s %10s execs %7s exec/s %4d s  cov: %-6s ft: %-6s' "$name" \
        "${executions:-?}" "${speed:-?}" $((SECONDS - started)) "${cov:-?}" "${ft:-?}"

    found=()
    for file in "$artifacts"*; do
        [ -f "$file" ] && found+=("$file")
    done
    if [ ${#found[@]} -eq 0 ] && [ $result -eq 0 ]; then
        echo " ok"
        rm -rf "$artifacts"
        continue
    fi
    failed=1
    echo " FAILED (status $result)"
    grep -E 'invariant broken|ERROR: |SUMMARY: ' "$log" | head -n 5 | sed 's/^/    /' || true
    if [ ${#found[@]} -eq 0 ]; then
        tail -n 20 "$log" | sed 's/^/    /'
    fi
    for file in "${found[@]}"; do
        echo "    finding: $file"
        echo "    base64: $(base64 -w 0 "$file")"
    done
done
if [ $failed -eq 0 ]; then
    rm -rf "$findings"
fi
exit $failed
