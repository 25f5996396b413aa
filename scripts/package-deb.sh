#!/usr/bin/env bash
# Builds the Debian packages of the tree with Debian's own tooling and
# checks them with lintian: libkiv1 (the library), libkiv-dev (header, .so
# link, pkg-config file, CMake package) and kiv (the tool, its manual pages,
# shell completion, docs and examples), into dist/.
#   scripts/package-deb.sh          for this machine's architecture
#   scripts/package-deb.sh arm64    cross-built for the camera's processor
# The version is the project's (CMakeLists.txt); the packages' dates, the
# manual pages' among them, are the last commit's, so two builds of one
# commit give the same packages.  The files packaged are those git tracks,
# as they stand in the working tree.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
arch=${1:-$(dpkg --print-architecture)}
native=$(dpkg --print-architecture)
scripts/install-deps.sh package
if [ "$arch" != "$native" ]; then
    scripts/install-deps.sh "$native" g++-aarch64-linux-gnu qemu-user file
    scripts/install-deps.sh "$arch" liblua5.3-dev
fi
version=$(sed -n 's/^project(kiv VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "no project version in CMakeLists.txt" >&2; exit 2; }
epoch=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || date +%s)}
commit=$(git rev-parse --short=12 HEAD 2>/dev/null || echo unknown)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
src=$work/libkiv-$version
mkdir "$src"
git ls-files -z | tar --null --ignore-failed-read -T - -cf - 2>/dev/null | tar -xf - -C "$src"
# Every file dated by the commit: what dpkg does not clamp (files older than
# it) must not depend on when the tree was checked out.
find "$src" -exec touch -h -d "@$epoch" {} +
cat >"$src/debian/changelog" <<CHANGELOG
libkiv ($version) unstable; urgency=medium

  * The tree at commit $commit.

 -- $(sed -n 's/^Maintainer: //p' debian/control)  $(LC_ALL=C date -u -R -d "@$epoch")
CHANGELOG

(
    cd "$src"
    if [ "$arch" = "$native" ]; then
        dpkg-buildpackage -us -uc -b
    else
        DEB_BUILD_OPTIONS=nocheck dpkg-buildpackage -us -uc -B -a "$arch" -Pcross,nocheck -d
    fi
) >"$work/build.log" 2>&1 || { tail -40 "$work/build.log" >&2; exit 1; }

mkdir -p dist
changes=$(ls "$work"/libkiv_"$version"_"$arch".changes)
for deb in "$work"/*.deb; do
    cp "$deb" dist/
done
# lintian: no error and no warning (overrides, each with its reason, are
# in debian/*.lintian-overrides).
lintian --fail-on error,warning --tag-display-limit 0 "$changes"
ls -1 dist/*_"$version"_"$arch".deb
