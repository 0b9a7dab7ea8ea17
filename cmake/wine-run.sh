#!/usr/bin/env bash
# Runs a Windows test binary under wine64 with a prefix private to the build tree.
set -e
build_dir=${MORVAX_WINE_BUILD_DIR:-$PWD}
export WINEPREFIX=${WINEPREFIX:-$build_dir/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)
exec "$wine" "$@"
