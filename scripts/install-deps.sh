#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
#   scripts/install-deps.sh                   the build's packages, for this machine
#   scripts/install-deps.sh ARCH PACKAGE...   the given packages for ARCH (e.g. arm64),
#                                             adding ARCH to dpkg when it is foreign
# A package counts as installed only for the architecture asked: a cross
# machine often has liblua5.3-dev:arm64 and no native liblua5.3-dev, and
# dpkg-query answers "installed" for a bare name when any architecture is.
# Architecture-independent packages (Architecture: all) are asked as NAME:all.
set -euo pipefail
native=$(dpkg --print-architecture)
arch=$native
packages=(cmake ninja-build g++ clang libclang-rt-14-dev valgrind pkg-config liblua5.3-dev libgtest-dev googletest
          libbenchmark-dev binutils libcli11-dev nlohmann-json3-dev librsvg2-bin libpng-dev neovim
          help2man bash-completion zsh chromium)
# Installed without what they recommend: Emacs's would bring a mail system
# (mailutils and a mail transport agent) that no test uses.
lean=(emacs-nox elpa-eglot elpa-lua-mode)
if [ $# -gt 0 ]; then
    arch=$1
    shift
    packages=("$@")
    lean=()
fi

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
