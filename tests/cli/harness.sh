# What the command-line tests share. Sourced with the vornex program as $1.
set -uo pipefail

vornex=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/vornex-cli-XXXXXX")
export VORNEX_ROOT=$work/root VORNEX_PORT=0 HOME=$work/home
mkdir "$HOME"
failures=0

finish() {
  "$vornex" stop >/dev/null 2>&1
  cleanup
  rm -rf "$work"
  [ "$failures" -eq 0 ] || echo "$failures checks failed"
  exit "$((failures > 0))"
}
# Scripts with more to undo define their own.
cleanup() { :; }
trap finish EXIT

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# run EXPECTED_EXIT_CODE ARGUMENT...: leaves what was printed in $work/out and $work/err.
run() {
  local expected=$1 code=0
  shift
  timeout 100 "$vornex" "$@" >"$work/out" 2>"$work/err" </dev/null || code=$?
  if [ "$code" -ne "$expected" ]; then
    fail "vornex $* ended with $code, not $expected"
    sed 's/^/  out: /' "$work/out" | head -20
    sed 's/^/  err: /' "$work/err" | head -20
  fi
}

out_has() { grep -qF -- "$1" "$work/out" || fail "standard output lacks: $1, it is: $(head -c 2000 "$work/out")"; }
err_has() { grep -qF -- "$1" "$work/err" || fail "standard error lacks: $1, it is: $(head -c 2000 "$work/err")"; }

# json EXPRESSION: evaluates Python over the printed lines, `rows`.
json() {
  python3 - "$work/out" "$1" <<'PY'
import json, sys
rows = [json.loads(line) for line in open(sys.argv[1], encoding="utf-8")]
print(eval(sys.argv[2]))
PY
}

# is EXPRESSION EXPECTED
is() {
  local actual
  actual=$(json "$1") || fail "standard output is no JSON Lines: $(head -c 500 "$work/out")"
  [ "$actual" = "$2" ] || fail "$1 is $actual, not $2"
}

service_process() { tr -dc 0-9 <"$VORNEX_ROOT/Service/vornexd.lock"; }
