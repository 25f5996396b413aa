#!/usr/bin/env bash
# The lint_sarif_schema test: kiv lint's SARIF output for the shipped
# examples, a script that fails to load, one with findings of several rules
# (each with its region) and a file that cannot be read (a tool execution
# notification), validated against the SARIF 2.1.0 schema.
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
{
    cat "$src/tests/cases/include/two_sensors.lua"
    printf '_resource_config_.channels[1].hflp = 1\n'
    printf '_resource_config_.channels[2].vsrc.bits = 44\n'
    printf '_resource_config_.streams[2].max_size = {3840, 2160}\n'
} >"$work/mistakes.lua"
# Exit code 2 (a file that cannot be read) is expected.
(cd "$work" && "$kiv" lint -q --format sarif "$src"/examples/*.lua refused.lua mistakes.lua \
    missing.lua >lint.sarif) || [ $? -eq 2 ]
node "$here/validate.js" "$work/lint.sarif"
# Every finding of the mistakes is placed with a region.
node -e '
const log = JSON.parse(require("fs").readFileSync(process.argv[1], "utf8"));
const run = log.runs[0];
const placed = run.results.filter(r => r.locations[0].physicalLocation.artifactLocation.uri === "mistakes.lua");
if (placed.length < 3 || !placed.every(r => r.locations[0].physicalLocation.region.startLine > 0)) {
  console.error("findings of mistakes.lua without regions"); process.exit(1);
}
if (run.invocations[0].executionSuccessful !== false) {
  console.error("an unreadable file must make the run unsuccessful"); process.exit(1);
}
console.log(`${placed.length} findings placed; the unreadable file reported`);' "$work/lint.sarif"
