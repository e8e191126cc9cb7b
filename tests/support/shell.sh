# shellcheck shell=bash
# tests/support/shell.sh - sourced by the tests in shell: a scratch folder as the working folder,
# which goes when the test ends, and checks, which are counted. `report` is the last command of
# each.
set -uo pipefail
scratch=$(mktemp -d)
trap 'chmod -R u+w "$scratch"; rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
checks=0
failures=0
skipped=0

# failed NAME SAYING... shows what a command said, if it went to the file err.
failed() {
    failures=$((failures + 1))
    printf 'FAILED %s: %s\n' "$1" "${*:2}"
    [[ ! -s $scratch/err ]] || cat "$scratch/err"
}

# is NAME EXPECTED GOT
is() {
    checks=$((checks + 1))
    [[ $2 == "$3" ]] || failed "$1" "\"$3\" instead of \"$2\""
}

# does NAME COMMAND... must end with status 0. What it says goes to the file err.
does() {
    checks=$((checks + 1))
    "${@:2}" >"$scratch/err" 2>&1 || failed "$1" "status $?"
    rm -f "$scratch/err"
}

# skip WHAT was not tried. The test goes on, and is not reported as passed.
skip() {
    skipped=1
    printf 'SKIPPED %s\n' "$1"
}

report() {
    printf '%s checks as user %s, %s failed\n' "$checks" "$(id -u)" "$failures"
    ((checks > 0 && failures == 0)) || exit 1
    ((skipped == 0)) || exit 77
    exit 0
}
