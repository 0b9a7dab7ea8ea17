#!/usr/bin/env bash
# Builds the collector (Release), installs it into build/home and runs it as the daemon would:
# with no options, on the installation's configuration and the embedded simulated provider, which
# shows this machine. Events go to standard output until Ctrl-C. Safe to run again.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/deps.sh --native
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DMORVAX_BUILD_TESTS=OFF \
    -DMORVAX_BUILD_BENCH=OFF >/dev/null
cmake --build build/release -j"$jobs" >&2
cmake --install build/release --prefix build/home >/dev/null

export MORVAX_HOME="$root/build/home"
unset MORVAX_WMI_SIM MORVAX_ETC MORVAX_DB MORVAXD_PROCESSID
exec "$MORVAX_HOME/bin/morvax-wmi" "$@"
