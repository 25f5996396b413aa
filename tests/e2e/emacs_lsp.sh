#!/usr/bin/env bash
# The lsp_emacs test: `kiv lsp` in Emacs with eglot, set up as
# docs/editors.md tells users: its Emacs block is the init.el of a scratch
# home, with `kiv` on PATH.  Emacs runs as a daemon without a terminal, so it
# starts as a user's Emacs does (packages activated, init.el read) and runs
# its command loop; emacs_lsp.el visits a copy of examples/single_1080p.lua
# with a misspelt key and checks the finding in Flymake, completion, hover,
# definition, references, the quick fix and the clearing.  Nothing may be
# written beside the file.
#   emacs_lsp.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
command -v emacs >/dev/null ||
    { echo "emacs is missing: scripts/install-deps.sh installs it (emacs-nox elpa-eglot elpa-lua-mode)" >&2; exit 1; }
source "$here/editor_setup.sh"
mkdir -p "$home/.emacs.d" "$work/run"
chmod 700 "$work/run"
doc_snippet Emacs elisp >"$home/.emacs.d/init.el"
# Not the user's setup: Emacs would compile the packages it loads to native
# code in the background, taking both cores for a minute.
echo "(setq native-comp-deferred-compilation nil)" >"$home/.emacs.d/early-init.el"

status=0
(cd "$edit" &&
    HOME=$home XDG_CONFIG_HOME=$home XDG_DATA_HOME=$home XDG_STATE_HOME=$home XDG_CACHE_HOME=$home \
    XDG_RUNTIME_DIR=$work/run TMPDIR=$work/run \
    KIV_E2E_FILE=$file KIV_E2E_ORIGINAL=$example KIV_E2E_RESULT=$work/result \
    timeout 120 emacs --fg-daemon=kiv-e2e -l "$here/emacs_lsp.el" </dev/null >"$work/emacs.log" 2>&1) ||
    status=$?

[ $status -ne 124 ] || echo "emacs did not finish within 120 s" >&2
result=$(cat "$work/result" 2>/dev/null || echo "no result written")
check_left_alone single_1080p.lua || status=1
if [ $status -ne 0 ] || [ "$result" != pass ]; then
    echo "$result" >&2
    echo "--- what Emacs said" >&2
    cat "$work/emacs.log" >&2
    exit 1
fi
echo "kiv lsp in Emacs with the setup of docs/editors.md: diagnostics, completion, hover, definition," \
    "references, quick fix and clearing pass"
