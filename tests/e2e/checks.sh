# What a test says of what it finds: lines "ok" and "FAIL", and whether it passed.
# shellcheck shell=bash
set -euo pipefail

failures=0
checks=0

step() { printf '%s\n' "- $*"; }

# check TEXT COMMAND...: the command must succeed.
check() {
  local text=$1
  shift
  checks=$((checks + 1))
  if "$@"; then
    printf '  ok    %s\n' "$text"
  else
    failures=$((failures + 1))
    printf '  FAIL  %s\n' "$text"
  fi
}

# check_equal TEXT EXPECTED FOUND
check_equal() {
  check "$1" test "$2" = "$3"
  [ "$2" = "$3" ] || printf '        expected: %s\n        found:    %s\n' "$2" "$3"
}

# check_no TEXT COMMAND...: the command must print nothing.
check_no() {
  local text=$1 found
  shift
  found=$("$@" 2>&1 || true)
  check "$text" test -z "$found"
  [ -z "$found" ] || printf '%s\n' "$found" | sed 's/^/        found: /'
}

check_status() { check_equal "exit status $1" "$1" "$status"; }

conclude() {
  local status=$?
  if [ "$status" != 0 ]; then
    printf '  FAIL  the scenario stopped early, status %d\n' "$status"
    exit 1
  fi
  [ "$failures" = 0 ] && [ "$checks" -gt 0 ]
}
trap conclude EXIT

# until_so SECONDS COMMAND...
until_so() {
  local end=$((SECONDS + $1))
  shift
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.05
  done
}
