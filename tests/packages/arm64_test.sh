#!/usr/bin/env bash
# The arm64 packages of dist/ (scripts/package-deb.sh arm64), unpacked as
# the camera's root file system would hold them: a C program cross-built
# against libkiv-dev loads an example through the packaged libkiv1 under
# qemu, and its dump loads again.
#   tests/packages/arm64_test.sh VERSION
set -euo pipefail
cd "$(dirname "$0")/../.."
version=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
for p in libkiv1 libkiv-dev; do
    deb=dist/${p}_${version}_arm64.deb
    [ -f "$deb" ] || { echo "$deb is missing: run scripts/package-deb.sh arm64 first" >&2; exit 1; }
    dpkg-deb -x "$deb" "$root"
done
lib=$root/usr/lib/aarch64-linux-gnu
file -L "$lib/libkiv.so.1" | grep -q 'ARM aarch64' || { echo "not an aarch64 library: $lib/libkiv.so.1" >&2; exit 1; }
aarch64-linux-gnu-gcc -std=c99 -Wall -Werror examples/c-consumer/kiv_load.c -I"$root/usr/include" \
    -L"$lib" -lkiv -Wl,-rpath-link,/usr/lib/aarch64-linux-gnu -o "$root/kiv_load"
run() { qemu-aarch64 -L / -E LD_LIBRARY_PATH="$lib" "$root/kiv_load" "$@" >/dev/null; }
run examples/single_1080p.lua "$root/dump.lua"
run "$root/dump.lua"
grep -q '_resource_config_' "$root/dump.lua"
echo "arm64 packages: an example loads through the packaged library under qemu, and its dump again"
