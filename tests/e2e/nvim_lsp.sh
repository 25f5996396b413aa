#!/usr/bin/env bash
# The lsp_neovim test: `kiv lsp` in a real editor.  A copy of
# examples/single_1080p.lua with a misspelt key is opened in headless Neovim
# with its built-in client; nvim_lsp.lua waits for the finding, asks for
# completion, hover and a definition, applies the quick fix and waits for
# the diagnostics to clear.  Nothing may be written beside the file.
#   nvim_lsp.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
kiv=$(realpath "$1")
src=$(realpath "$2")
here=$(cd "$(dirname "$0")" && pwd)
command -v nvim >/dev/null || { echo "nvim is missing: scripts/install-deps.sh installs it" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/edit" "$work/home"
example=$src/examples/single_1080p.lua
file=$work/edit/single_1080p.lua
sed 's/^\thflip = 0,$/\thflp = 0,/' "$example" >"$file"
if cmp -s "$example" "$file"; then
    echo "the mistake was not planted: no line \"<tab>hflip = 0,\" in $example" >&2
    exit 1
fi

# The editor keeps its state, cache and log (lsp.log) in the scratch directory.
status=0
(cd "$work/edit" &&
    HOME=$work/home XDG_CONFIG_HOME=$work/home XDG_DATA_HOME=$work/home XDG_STATE_HOME=$work/home \
    XDG_CACHE_HOME=$work/home KIV_E2E_KIV=$kiv KIV_E2E_FILE=$file KIV_E2E_ORIGINAL=$example \
    KIV_E2E_RESULT=$work/result KIV_E2E_SCRIPT=$here/nvim_lsp.lua \
    timeout 120 nvim --headless --clean -u NONE -n -i NONE \
        -c 'lua dofile(os.getenv("KIV_E2E_SCRIPT"))' </dev/null) || status=$?

[ $status -ne 124 ] || echo "nvim did not finish within 120 s" >&2
result=$(cat "$work/result" 2>/dev/null || echo "no result written")
left=$(cd "$work/edit" && ls -A)
if [ "$left" != single_1080p.lua ]; then
    echo "files beside the script after the session: $left" >&2
    status=1
fi
if [ $status -ne 0 ] || [ "$result" != pass ]; then
    echo "$result" >&2
    log=$(find "$work/home" -name lsp.log)
    [ -z "$log" ] || { echo "--- $log" >&2; cat "$log" >&2; }
    exit 1
fi
echo "kiv lsp in Neovim: diagnostics, completion, hover, definition, quick fix and clearing pass"
