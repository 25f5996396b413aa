#!/usr/bin/env bash
# The pre_commit test: the hooks of .pre-commit-hooks.yaml run by Debian's
# pre-commit in a scratch repository that uses them as a project would.  A
# commit of a configuration with a misspelt key is stopped with the finding
# at its line (kiv-lint, its options passed through); a commit of a script
# the loader refuses is stopped by kiv-check; a clean commit passes.
#   pre_commit.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
kiv=$(realpath "$1")
src=$(realpath "$2")
command -v pre-commit >/dev/null || { echo "pre-commit is missing: scripts/install-deps.sh installs it" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/hooks" "$work/project" "$work/cache"
ln -s "$kiv" "$work/bin/kiv"
export PATH="$work/bin:$PATH" PRE_COMMIT_HOME="$work/cache" HOME="$work" GIT_CONFIG_NOSYSTEM=1
git config --global user.email test@example.invalid
git config --global user.name test
git config --global init.defaultBranch main

# The hooks repository: this tree's hook definitions, committed.
cp "$src/.pre-commit-hooks.yaml" "$work/hooks/"
git -C "$work/hooks" init -q
git -C "$work/hooks" add .pre-commit-hooks.yaml
git -C "$work/hooks" commit -qm hooks
rev=$(git -C "$work/hooks" rev-parse HEAD)

cd "$work/project"
git init -q
cat >.pre-commit-config.yaml <<YAML
repos:
  - repo: file://$work/hooks
    rev: $rev
    hooks:
      - id: kiv-check
      - id: kiv-lint
        args: [--error-on, warning, --disable, overlapping-windows]
YAML
git add .pre-commit-config.yaml
git commit -qm config
pre-commit install >/dev/null

fail=0
expect() { # description, "pass" or "stop", text the output must hold
    local out status=0
    out=$(git commit -qm "$1" 2>&1) || status=$?
    if { [ "$2" = pass ] && [ $status -ne 0 ]; } || { [ "$2" = stop ] && [ $status -eq 0 ]; } ||
        [[ $out != *"$3"* ]]; then
        printf 'FAIL %s: expected the commit to %s with %q in the output; status %d:\n%s\n' \
            "$1" "$2" "$3" $status "$out"
        fail=1
    else
        echo "ok   $1"
    fi
}

# A clean configuration passes both hooks.
cp "$src/examples/single_1080p.lua" front.lua
git add front.lua
expect "a clean configuration" pass "kiv lint"

# A misspelt key: the lint finding at its line stops the commit (a warning,
# stopping only because --error-on warning came through).
line=$(grep -n $'^\thflip = 0,$' front.lua | cut -d: -f1)
sed -i 's/^\thflip = 0,$/\thflp = 0,/' front.lua
git add front.lua
expect "a misspelt key" stop "front.lua:$line:2: warning: channels[0].hflp: no loader reads \`hflp\`"
git checkout -q HEAD front.lua

# A script the loader refuses: kiv-check stops the commit at the line.
sed -i 's/^\tmode = "1080p",$/\tmode = "1080px",/' front.lua
git add front.lua
expect "a refused configuration" stop "front.lua:$(grep -n '1080px' front.lua | cut -d: -f1):"
git checkout -q HEAD front.lua

# Other files are not given to kiv.
echo "not lua" >notes.txt
git add notes.txt
expect "a file that is not a script" pass "kiv check"
exit $fail
