#!/usr/bin/env bash
# The packages as a Debian user gets them: libkiv1, libkiv-dev and kiv of
# dist/ installed with apt into a fresh Debian 12 root made by mmdebstrap,
# where kiv checks the packaged examples, a C program builds against the
# library through pkg-config and through find_package(kiv) and loads an
# example, and apt then removes the packages leaving none of their files.
#   tests/packages/install_test.sh VERSION   (after scripts/package-deb.sh)
set -euo pipefail
cd "$(dirname "$0")/../.."
version=$1
arch=$(dpkg --print-architecture)
debs=()
for p in libkiv1 libkiv-dev kiv; do
    deb=dist/${p}_${version}_${arch}.deb
    [ -f "$deb" ] || { echo "$deb is missing: run scripts/package-deb.sh first" >&2; exit 1; }
    debs+=("$deb")
done

# What runs in the fresh root, as root there.
inside=$(mktemp)
trap 'rm -f "$inside"' EXIT
cat >"$inside" <<'SH'
set -eu
export DEBIAN_FRONTEND=noninteractive
cd /tmp
apt-get install -y -qq ./libkiv1.deb ./libkiv-dev.deb ./kiv.deb gcc cmake make pkg-config >/dev/null
echo "installed: $(dpkg-query -W -f '${Package} ${Version}, ' libkiv1 libkiv-dev kiv)"
for f in /usr/share/doc/kiv/examples/*.lua; do
    kiv check -q "$f"
done
echo "kiv check: every packaged example loads"
[ -f /usr/share/man/man1/kiv-lint.1.gz ] && [ -f /usr/share/bash-completion/completions/kiv ]
cp -r /usr/share/doc/kiv/examples/c-consumer consumer
cc consumer/kiv_load.c $(pkg-config --cflags --libs kiv) -o load-pc
./load-pc /usr/share/doc/kiv/examples/single_1080p.lua /tmp/dump-pc.lua >/dev/null
cmake -S consumer -B consumer/build >/dev/null
cmake --build consumer/build >/dev/null
consumer/build/kiv_load /usr/share/doc/kiv/examples/single_1080p.lua /tmp/dump-cmake.lua >/dev/null
cmp /tmp/dump-pc.lua /tmp/dump-cmake.lua
echo "a C program built through pkg-config and through find_package(kiv) loads an example"
files=$(dpkg -L libkiv1 libkiv-dev kiv | while read -r f; do [ -f "$f" ] && echo "$f"; done)
apt-get remove --purge -y -qq kiv libkiv-dev libkiv1 >/dev/null
left=$(for f in $files; do [ ! -e "$f" ] || echo "$f"; done)
[ -z "$left" ] || { echo "left after removal: $left"; exit 1; }
! dpkg-query -W libkiv1 libkiv-dev kiv 2>/dev/null | grep -q .
echo "apt remove --purge: no file of the packages left"
SH
mmdebstrap --quiet --variant=apt --mode=root \
    --customize-hook="upload ${debs[0]} /tmp/libkiv1.deb" \
    --customize-hook="upload ${debs[1]} /tmp/libkiv-dev.deb" \
    --customize-hook="upload ${debs[2]} /tmp/kiv.deb" \
    --customize-hook="upload $inside /tmp/inside.sh" \
    --customize-hook='chroot "$1" sh /tmp/inside.sh' \
    bookworm /dev/null
echo "the packages install, work and go away cleanly in a fresh Debian 12"
