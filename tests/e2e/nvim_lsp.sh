#!/usr/bin/env bash
# The lsp_neovim test: `kiv lsp` in a real editor, set up as docs/editors.md
# tells users: its Neovim 0.7 block is the init.lua of a scratch home, with
# `kiv` on PATH.  Headless Neovim opens a copy of examples/single_1080p.lua
# with a misspelt key; nvim_lsp.lua waits for the finding, asks for
# completion, hover and a definition, applies the quick fix and waits for
# the diagnostics to clear.  A second session opens two scripts at once:
# one client and one server process serve both.  Nothing may be written
# beside the files.
#   nvim_lsp.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
command -v nvim >/dev/null || { echo "nvim is missing: scripts/install-deps.sh installs it" >&2; exit 1; }
source "$here/editor_setup.sh"
mkdir -p "$home/nvim"
doc_snippet Neovim lua >"$home/nvim/init.lua"
cp "$file" "$edit/other.lua"

# One editor session on the scripts given; the editor keeps its state, cache
# and log (lsp.log) in the scratch home.
session() { # case (run_one, run_two), nvim's arguments...
    local status=0 result log
    rm -f "$work/result"
    (cd "$edit" &&
        HOME=$home XDG_CONFIG_HOME=$home XDG_DATA_HOME=$home XDG_STATE_HOME=$home XDG_CACHE_HOME=$home \
        KIV_E2E_KIV=$kiv KIV_E2E_FILE=$file KIV_E2E_ORIGINAL=$example \
        KIV_E2E_RESULT=$work/result KIV_E2E_SCRIPT=$here/nvim_lsp.lua \
        timeout 120 nvim --headless -n -i NONE --cmd 'lua kiv_e2e = dofile(os.getenv("KIV_E2E_SCRIPT"))' \
            -c "lua kiv_e2e.$1()" "${@:2}" </dev/null) || status=$?
    [ $status -ne 124 ] || echo "nvim did not finish within 120 s" >&2
    result=$(cat "$work/result" 2>/dev/null || echo "no result written")
    if [ $status -ne 0 ] || [ "$result" != pass ]; then
        echo "$1: $result" >&2
        log=$(find "$home" -name lsp.log)
        [ -z "$log" ] || { echo "--- $log" >&2; cat "$log" >&2; }
        return 1
    fi
}

session run_one single_1080p.lua
session run_two -O single_1080p.lua other.lua
check_left_alone single_1080p.lua other.lua
echo "kiv lsp in Neovim with the setup of docs/editors.md: diagnostics, completion, hover, definition," \
    "references, quick fix and clearing pass; two scripts share one server"
