# Sourced by the editor tests (nvim_lsp.sh, emacs_lsp.sh): a scratch
# directory with the editor's home, a `kiv` on PATH that is the binary under
# test, the setup block of docs/editors.md that a user copies, and a copy of
# examples/single_1080p.lua with a misspelt key.
#   source editor_setup.sh KIV_BINARY SOURCE_DIR
# sets: kiv src work home edit example file, and PATH; removes $work on exit.

kiv=$(realpath "$1")
src=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
home=$work/home
edit=$work/edit
mkdir "$home" "$edit" "$work/bin"
ln -s "$kiv" "$work/bin/kiv"
export PATH=$work/bin:$PATH

# The first ```LANG block under the heading "## HEADING" of docs/editors.md,
# as the user copies it.
doc_snippet() { # heading, language
    local block
    block=$(awk -v heading="## $1" -v fence="\`\`\`$2" '
        $0 == heading { under = 1; next }
        under && /^## / { exit }
        under && !inside && $0 == fence { inside = 1; next }
        inside && /^```/ { exit }
        inside { print }' "$src/docs/editors.md")
    if [ -z "$block" ]; then
        echo "docs/editors.md has no \`\`\`$2 block under \"## $1\"" >&2
        return 1
    fi
    printf '%s\n' "$block"
}

# The planted mistake: the channel's `hflip` spelt `hflp`.
example=$src/examples/single_1080p.lua
file=$edit/single_1080p.lua
sed 's/^\thflip = 0,$/\thflp = 0,/' "$example" >"$file"
if cmp -s "$example" "$file"; then
    echo "the mistake was not planted: no line \"<tab>hflip = 0,\" in $example" >&2
    exit 1
fi

# Fails when the editor left anything beside the scripts it was given:
# backups, lock or swap files, or anything the server wrote.
check_left_alone() { # the names expected in $edit
    local left want
    left=$(cd "$edit" && ls -A)
    want=$(printf '%s\n' "$@" | sort)
    if [ "$left" != "$want" ]; then
        echo "files beside the script after the session: $left" >&2
        return 1
    fi
}
