# Imports on a full disk, and while the service is killed again and again.
source "$(dirname "$0")/harness.sh"
mounted=
cleanup() { [ -z "$mounted" ] || umount "$mounted"; }

databases_are_sound() {
  local database
  while IFS= read -r database; do
    [ "$(sqlite3 "file:$database?mode=ro" 'PRAGMA integrity_check')" = ok ] || fail "$database is damaged"
  done < <(find "$VORNEX_ROOT" -name '*.sqlite*' ! -name '*-wal' ! -name '*-shm')
}

# Every record has its file and every file its record.
library_is_whole() {
  local library=$1
  run 0 --json search '' --library "$library" --limit 1000
  is '[r["name"] for r in rows[:-1] if not r["file"] or not __import__("os").path.isfile(r["file"])]' '[]'
  is 'len({r["file"] for r in rows[:-1]}) == rows[-1]["total"]' True
  is 'rows[-1]["total"]' "$(find "$library/Media/Master" -type f | wc -l)"
}

# The service is killed at ten moments of one import: the import goes on, and nothing acknowledged is lost.
mkdir "$work/many"
for i in $(seq 300); do
  head -c $((20000 + i * 100)) /dev/urandom >"$work/many/file $i.dat"
done
run 0 library create "$work/Library"
run 0 project add Inbox
"$vornex" --json import "$work/many" >"$work/imported" 2>"$work/err" &
import=$!
kills=0
until [ -s "$work/imported" ] || ! kill -0 "$import" 2>/dev/null; do sleep 0.02; done
while [ "$kills" -lt 10 ] && kill -0 "$import" 2>/dev/null; do
  sleep "0.$((RANDOM % 4))$((RANDOM % 10))"
  kill -9 "$(service_process)" 2>/dev/null && kills=$((kills + 1))
done
wait "$import"
[ "$kills" -ge 3 ] || fail "the import ended after $kills kills"
cp "$work/imported" "$work/out"
is 'rows[-1]["kind"]' summary
run 0 --json search '' --limit 1000
cat "$work/imported" >>"$work/out"
is '[r["path"] for r in rows if r.get("result") == "imported" and r["id"] not in {a["id"] for a in rows if a["kind"] == "asset"}]' '[]'
run 0 --json import --resume "$work/many"
library_is_whole "$work/Library"
is 'rows[-1]["total"]' 300
run 0 stop
databases_are_sound

# A full disk: what fits is imported whole, the rest is refused, and the library opens afterwards.
if [ "$(id -u)" -eq 0 ] && mkdir "$work/small" && mount -t tmpfs -o size=12m tmpfs "$work/small" 2>/dev/null; then
  mounted=$work/small
  mkdir "$work/ten"
  for i in $(seq 10); do head -c 2M /dev/urandom >"$work/ten/$i.dat"; done
  run 0 library create "$work/small/Full"
  run 0 project add Inbox --library Full
  run 1 --json import "$work/ten" --library Full
  is '0 < rows[-1]["imported"] < 10 and rows[-1]["imported"] + rows[-1]["failed"] == 10' True
  is 'all("space" in r.lower() for r in rows[-1]["reasons"])' True
  imported=$(json 'rows[-1]["imported"]')
  run 0 stop
  library_is_whole "$work/small/Full"
  is 'rows[-1]["total"]' "$imported"
  run 0 stop
fi
