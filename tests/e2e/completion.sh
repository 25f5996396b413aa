#!/usr/bin/env bash
# The completion test: what `kiv completion bash` and `kiv completion zsh`
# write, asked in a real bash (its completion variables set as bash sets
# them) and checked for zsh's syntax and, with zsh's completion functions
# stubbed to print what they are given, for the words they offer.
#   completion.sh KIV_BINARY
set -euo pipefail
kiv=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$kiv" completion bash >"$work/kiv.bash"
"$kiv" completion zsh >"$work/_kiv"
mkdir "$work/dir" && touch "$work/dir/board.lua" "$work/dir/other.lua"
fail=0

# The words bash offers for a command line whose last word is being typed.
offered() {
    (cd "$work/dir" && bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        _kiv; [ ${#COMPREPLY[@]} -eq 0 ] || printf "%s\n" "${COMPREPLY[@]}"' _ "$work/kiv.bash" "$@") |
        sort | tr '\n' ' '
}

# command line (words separated by blanks, the last one as typed) | what is offered
while IFS='|' read -r line want; do
    read -ra words <<<"$line"
    [[ $line == *' ' ]] && words+=("")
    got=$(offered "${words[@]}")
    if [ "$got" != "$want" ]; then
        echo "FAIL bash: '$line' offers '$got', not '$want'"
        fail=1
    fi
done <<'CASES'
kiv l|layout lint lsp 
kiv lint --dis|--disable 
kiv lint --disable unk|unknown-key 
kiv lint --format |json sarif text 
kiv check --format |json text 
kiv check -q bo|board.lua 
kiv dump -o ot|other.lua 
kiv dump --log-level |
kiv completion |bash zsh 
kiv lsp --|--debounce --help 
CASES

zsh -n "$work/_kiv" || { echo "FAIL zsh: the script does not parse"; fail=1; }
# zsh, its completion functions stubbed to print what they are given: the
# words typed (the text of a zsh array) and the place of the one typed.
sed '$d' "$work/_kiv" >"$work/_kiv.body"
zsh_words() {
    zsh -c 'source "$1"
        _describe() { print -l -- ${(P)2}; }
        _arguments() { print -l -- "$@"; }
        eval "words=($2)"; CURRENT=$3; _kiv' _ "$work/_kiv.body" "$1" "$2"
}
zsh_words "kiv ''" 2 | grep -q '^lint:Load each script' ||
    { echo "FAIL zsh: no lint among the subcommands"; fail=1; }
zsh_words "kiv lint --disable ''" 4 | grep -q '^--disable\[.*\]:value:(load-failed .*unknown-key' ||
    { echo "FAIL zsh: lint's --disable does not offer the rule ids"; fail=1; }
[ $fail -eq 0 ] && echo "completion: bash and zsh offer what they should"
exit $fail
