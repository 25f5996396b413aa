#!/usr/bin/env bash
# Installs the Debian packages a purpose needs, when missing.
#   scripts/install-deps.sh build             what building the library and the tool needs
#   scripts/install-deps.sh test              that, and what the tests, benchmarks and fuzzers
#                                             run (editors, a browser, sanitizer runtimes, ...)
#   scripts/install-deps.sh package           the build's, and what building the Debian
#                                             packages and checking them needs
#   scripts/install-deps.sh ARCH PACKAGE...   the given packages for ARCH (e.g. arm64),
#                                             adding ARCH to dpkg when it is foreign
# The main job (run-example.sh) asks for the build only: a fresh machine that
# just builds gets no browser, editor, shell or sanitizer runtime.
# A package counts as installed only for the architecture asked: a cross
# machine often has liblua5.3-dev:arm64 and no native liblua5.3-dev, and
# dpkg-query answers "installed" for a bare name when any architecture is.
# Architecture-independent packages (Architecture: all) are asked as NAME:all.
set -euo pipefail
native=$(dpkg --print-architecture)
arch=$native
build=(cmake ninja-build g++ pkg-config liblua5.3-dev libcli11-dev nlohmann-json3-dev)
test=(clang libclang-rt-14-dev valgrind libgtest-dev googletest libbenchmark-dev binutils librsvg2-bin
      libpng-dev neovim help2man bash-completion zsh chromium git pre-commit)
# Installed without what they recommend: Emacs's would bring a mail system
# (mailutils and a mail transport agent) that no test uses.
lean=(emacs-nox elpa-eglot elpa-lua-mode)
package=(debhelper dpkg-dev lintian help2man git mmdebstrap)
case ${1:-} in
    package)
        packages=("${build[@]}" "${package[@]}")
        lean=()
        ;;
    build)
        packages=("${build[@]}")
        lean=()
        ;;
    test)
        packages=("${build[@]}" "${test[@]}")
        ;;
    '' | -*)
        echo "usage: scripts/install-deps.sh build|test|package|ARCH PACKAGE..." >&2
        exit 2
        ;;
    *)
        arch=$1
        shift
        packages=("$@")
        lean=()
        ;;
esac

installed() { # package, architecture
    local a
    for a in "$2" all; do
        [ "$(dpkg-query -W -f='${Status}' "$1:$a" 2>/dev/null)" = "install ok installed" ] && return 0
    done
    return 1
}

missing=() missing_lean=()
for p in "${packages[@]}"; do
    installed "$p" "$arch" || missing+=("$p:$arch")
done
for p in "${lean[@]}"; do
    installed "$p" "$arch" || missing_lean+=("$p:$arch")
done
[ ${#missing[@]} -gt 0 ] || [ ${#missing_lean[@]} -gt 0 ] || exit 0

echo "installing: ${missing[*]} ${missing_lean[*]}"
sudo_cmd=""
[ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
if [ "$arch" != "$native" ] && ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    $sudo_cmd dpkg --add-architecture "$arch"
fi
$sudo_cmd apt-get update -qq
[ ${#missing[@]} -eq 0 ] || DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
[ ${#missing_lean[@]} -eq 0 ] ||
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing_lean[@]}"
