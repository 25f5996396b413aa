#!/usr/bin/env bash
# The Debian packages, end to end: built for this machine (lintian-clean),
# built again to show that one commit gives the same packages byte for byte,
# installed into a fresh Debian 12 root and removed (tests/packages/
# install_test.sh), then cross-built for arm64 and loaded under qemu
# (tests/packages/arm64_test.sh).  About 15 minutes on two cores, most of it
# the three package builds.
set -euo pipefail
cd "$(dirname "$0")/.."
version=$(sed -n 's/^project(kiv VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
arch=$(dpkg --print-architecture)
rm -f dist/*_"$version"_*.deb
scripts/package-deb.sh
first=$(mktemp -d)
trap 'rm -rf "$first"' EXIT
cp dist/*_"$version"_"$arch".deb "$first/"
scripts/package-deb.sh >/dev/null
for deb in "$first"/*.deb; do
    cmp "$deb" "dist/$(basename "$deb")" ||
        { echo "two builds of one commit differ: $(basename "$deb")" >&2; exit 1; }
done
echo "two builds of the commit give the same packages"
tests/packages/install_test.sh "$version"
scripts/package-deb.sh arm64
tests/packages/arm64_test.sh "$version"
