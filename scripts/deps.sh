#!/usr/bin/env bash
# Installs, as root and only when missing, the Debian packages the build and the tests need.
# With --native, only what the Linux program itself needs.
set -euo pipefail

packages=(
    cmake g++ make pkg-config python3
    libpcre2-dev libsqlite3-dev zlib1g-dev nlohmann-json3-dev
)
if [ "${1:-}" != "--native" ]; then
    packages+=(
        git ca-certificates tcl clang
        libgtest-dev libgmock-dev googletest libbenchmark-dev
        mingw-w64 g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64
    )
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
if ! $sudo apt-get install -y --no-install-recommends "${missing[@]}"; then
    $sudo apt-get update
    $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
