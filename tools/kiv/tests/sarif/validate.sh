#!/usr/bin/env bash
# The lint_sarif_schema test: kiv lint's SARIF output for the shipped
# examples (which have findings of several rules) and for a script that
# fails to load, validated against the SARIF 2.1.0 schema.
#   validate.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
kiv=$1
src=$2
here=$(cd "$(dirname "$0")" && pwd)
if [ ! -d "$here/node_modules/ajv" ] || [ ! -d "$here/node_modules/@microsoft/jest-sarif" ]; then
    (cd "$here" && npm ci --no-audit --no-fund --loglevel=error)
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '_resource_config_ = { version = 2 }\n' >"$work/refused.lua"
# Exit code 1 (findings) is expected.
"$kiv" lint -q --format sarif "$src"/examples/*.lua "$work/refused.lua" >"$work/lint.sarif" || [ $? -eq 1 ]
node "$here/validate.js" "$work/lint.sarif"
