#!/usr/bin/env bash
# scripts/install-deps.sh on a cross machine, without a second machine: dpkg,
# dpkg-query, apt-get and sudo are stand-ins that keep the installed packages
# in a list.  The machine is amd64 with liblua5.3-dev:arm64 and
# libgtest-dev:arm64 installed (as the aarch64 build leaves it) and every other
# native package present; the script must install the native Lua and
# GoogleTest packages, then find nothing to do when run again.
set -euo pipefail
script=$(cd "$(dirname "$0")/.." && pwd)/scripts/install-deps.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"

# Installed packages, one NAME:ARCH per line.
for p in cmake ninja-build g++ clang libclang-rt-14-dev valgrind pkg-config libbenchmark-dev \
         binutils libpng-dev librsvg2-bin neovim help2man zsh chromium emacs-nox git; do
    echo "$p:amd64"
done >"$work/installed"
printf '%s\n' pre-commit:all elpa-eglot:all elpa-lua-mode:all googletest:all libcli11-dev:all nlohmann-json3-dev:all bash-completion:all liblua5.3-dev:arm64 \
    libgtest-dev:arm64 >>"$work/installed"

cat >"$work/bin/dpkg-query" <<EOF
#!/usr/bin/env bash
# dpkg-query -W -f=FORMAT NAME[:ARCH]: a bare name matches any architecture.
name=\${!#}
case \$name in
    *:*) grep -qx "\$name" "$work/installed" ;;
    *) grep -q "^\$name:" "$work/installed" ;;
esac || { echo "dpkg-query: no packages found matching \$name" >&2; exit 1; }
printf 'install ok installed'
EOF
cat >"$work/bin/dpkg" <<EOF
#!/usr/bin/env bash
case \$1 in
    --print-architecture) echo amd64 ;;
    --print-foreign-architectures) echo arm64 ;;
    *) echo "dpkg \$*" >>"$work/calls" ;;
esac
EOF
cat >"$work/bin/apt-get" <<EOF
#!/usr/bin/env bash
echo "apt-get \$*" >>"$work/calls"
[ "\$1" = install ] || exit 0
for a in "\$@"; do
    case \$a in -*|install) ;; *:*) echo "\$a" >>"$work/installed" ;; esac
done
EOF
printf '#!/usr/bin/env bash\nexec "$@"\n' >"$work/bin/sudo"
chmod +x "$work/bin"/*

fail=0
expect_calls() { # description, expected calls
    local got
    got=$(cat "$work/calls" 2>/dev/null || true)
    if [ "$got" = "$2" ]; then
        echo "ok   $1"
    else
        printf 'FAIL %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$got"
        fail=1
    fi
    rm -f "$work/calls"
}

PATH="$work/bin:$PATH" "$script" test >/dev/null
expect_calls "native Lua and GoogleTest installed beside the arm64 ones" \
    "apt-get update -qq
apt-get install -y -qq liblua5.3-dev:amd64 libgtest-dev:amd64"
PATH="$work/bin:$PATH" "$script" test >/dev/null
expect_calls "second run installs nothing" ""
PATH="$work/bin:$PATH" "$script" build >/dev/null
expect_calls "the build's packages are there too" ""
PATH="$work/bin:$PATH" "$script" arm64 liblua5.3-dev libgtest-dev >/dev/null
expect_calls "arm64 packages already there" ""
PATH="$work/bin:$PATH" "$script" arm64 liblua5.3-dev libpng-dev >/dev/null
expect_calls "arm64 package asked by its architecture" \
    "apt-get update -qq
apt-get install -y -qq libpng-dev:arm64"
# A fresh machine that only builds (the main job) gets the build's packages
# and no browser, editor, shell, sanitizer runtime or test framework.
: >"$work/installed"
PATH="$work/bin:$PATH" "$script" build >/dev/null
expect_calls "the build alone on a fresh machine" \
    "apt-get update -qq
apt-get install -y -qq cmake:amd64 ninja-build:amd64 g++:amd64 pkg-config:amd64 liblua5.3-dev:amd64 libcli11-dev:amd64 nlohmann-json3-dev:amd64"
if PATH="$work/bin:$PATH" "$script" >/dev/null 2>&1; then
    echo "FAIL no purpose given: not refused"
    fail=1
else
    echo "ok   no purpose given: refused"
fi
exit $fail
