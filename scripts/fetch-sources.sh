#!/usr/bin/env bash
# Fetches the Debian source packages that the Windows build compiles with the cross compiler
# (PCRE2 and SQLite) into build/third_party/. SQLite's amalgamation, the one file the build
# compiles, is made from its sources by their own `make sqlite3.c`. Safe to run again.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dest="$root/build/third_party"
mkdir -p "$dest"

packages=(pcre2 sqlite3)

need=()
for p in "${packages[@]}"; do
    [ -f "$dest/$p/.complete" ] || need+=("$p")
done
[ ${#need[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

# A deb-src entry derived from the machine's own apt sources, in a private apt configuration.
apt_dir="$dest/apt"
mkdir -p "$apt_dir/lists/partial"
: >"$apt_dir/sources.list"
for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$f" ] || continue
    sed -n 's/^[[:space:]]*deb[[:space:]]/deb-src /p' "$f" >>"$apt_dir/sources.list"
done
: >"$apt_dir/deb822.sources"
for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    sed 's/^Types:.*deb\b.*$/Types: deb-src/' "$f" >>"$apt_dir/deb822.sources"
    echo >>"$apt_dir/deb822.sources"
done
mkdir -p "$apt_dir/parts"
cp "$apt_dir/deb822.sources" "$apt_dir/parts/src.sources"
apt_opts=(-o "Dir::Etc::sourcelist=$apt_dir/sources.list" -o "Dir::Etc::sourceparts=$apt_dir/parts"
    -o "Dir::State::Lists=$apt_dir/lists" -o "APT::Sandbox::User=root")
$sudo apt-get "${apt_opts[@]}" update >/dev/null

suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
for p in "${need[@]}"; do
    work="$dest/download-$p"
    rm -rf "$work" "$dest/$p"
    mkdir -p "$work"
    (cd "$work" && $sudo apt-get "${apt_opts[@]}" source --download-only "$p/$suite" >/dev/null)
    tarball=$(ls "$work"/*.orig.tar.* | head -n 1)
    mkdir -p "$dest/$p"
    tar -xf "$tarball" -C "$dest/$p" --strip-components=1
    if [ "$p" = sqlite3 ]; then
        mkdir -p "$dest/$p/amalgamation"
        (cd "$dest/$p/amalgamation" && ../configure --disable-tcl >/dev/null &&
            make sqlite3.c >/dev/null)
    fi
    touch "$dest/$p/.complete"
    rm -rf "$work"
done
