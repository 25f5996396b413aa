#!/usr/bin/env bash
# Installs a release build into a scratch prefix other than the one it was
# configured with, moves the installed tree elsewhere, and builds the C
# consumer against it, once through pkg-config (with no other package's .pc
# file in reach) and once through find_package(kiv); both must load the
# example configuration.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake -S . -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
    -DKIV_WERROR=ON -DCMAKE_INSTALL_PREFIX="$work/configured" >/dev/null
cmake --build "$work/build" >/dev/null
cmake --install "$work/build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/prefix"
[ ! -e "$work/configured" ] || { echo "installed into the configured prefix"; exit 1; }
lib=$(find "$work/prefix" -name 'libkiv.so.1.0.0')
defined=$(nm -D --defined-only "$lib" | awk '{print $2}' | sort | tr '\n' ' ')
[ "$defined" = "T T T T T T T T " ] || { nm -D --defined-only "$lib"; echo "unexpected exports"; exit 1; }
readelf -d "$lib" | grep -q 'SONAME.*\[libkiv.so.1\]'

# The tool, its manual pages and its shell completion, where man and the
# shells look.
"$work/prefix/bin/kiv" --version | grep -q "^kiv [0-9.]* (libkiv [0-9.]*, Lua 5\.3" ||
    { echo "kiv --version from the installed tree"; exit 1; }
for page in kiv kiv-check kiv-lint kiv-show kiv-dump kiv-diff kiv-layout kiv-calib kiv-hevc kiv-aisp \
    kiv-lsp kiv-completion; do
    grep -q '^\.SH NAME' "$work/prefix/share/man/man1/$page.1" || { echo "no manual page $page"; exit 1; }
done
grep -q '^complete -F _kiv kiv$' "$work/prefix/share/bash-completion/completions/kiv" &&
    grep -q '^#compdef kiv$' "$work/prefix/share/zsh/site-functions/_kiv" ||
    { echo "the shell completion is not installed"; exit 1; }
[ -s "$work/prefix/share/doc/kiv/format.md" ] && [ -s "$work/prefix/share/doc/kiv/examples/single_1080p.lua" ] ||
    { echo "the documentation is not installed"; exit 1; }

export PKG_CONFIG_LIBDIR="$(dirname "$lib")/pkgconfig" PKG_CONFIG_PATH=
export LD_LIBRARY_PATH="$(dirname "$lib")"
cc -std=c99 -Wall -Wextra -Wpedantic -Werror examples/c-consumer/kiv_load.c \
    $(pkg-config --cflags --libs kiv) -o "$work/kiv_load_pc"
"$work/kiv_load_pc" examples/single_1080p.lua "$work/out.lua" >/dev/null
"$work/kiv_load_pc" "$work/out.lua" >/dev/null

cmake -S examples/c-consumer -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/kiv_load" "$root/examples/single_1080p.lua" >/dev/null
echo "install check: exports, SONAME, the tool with its manual pages and completion, pkg-config and find_package(kiv) consumers of a moved prefix all good"
