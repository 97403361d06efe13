# The life of a library, with the service killed between its steps, and what is killed in the middle of one.
source "$(dirname "$0")/harness.sh"
mounted=
cleanup() { [ -z "$mounted" ] || umount "$mounted"; }

kill_service() { kill -9 "$(service_process)" 2>/dev/null; }

# holds LIBRARY COUNT: so many assets, each with its file.
holds() {
  run 0 --json search '' --library "$1" --limit 1000
  is 'rows[-1]["total"]' "$2"
  is '[r["name"] for r in rows[:-1] if not __import__("os").path.isfile(r["file"])]' '[]'
}

packaged() { echo "$1"/Database/*/library.sqlite; }
is_sound() { [ "$(sqlite3 "file:$1?immutable=1" 'PRAGMA integrity_check')" = ok ] || fail "$1 is damaged"; }

mkdir "$work/media" "$work/elsewhere"
for i in $(seq 20); do echo "text $i" >"$work/media/file $i.txt"; done

run 0 library create "$work/Films"
kill_service
run 0 project add Trips/Sea -L Films
kill_service
for change in 'group Trips Hills' 'group Trips/Hills High' 'move Trips/Hills/High --into Trips/Sea' \
  'move Trips/Hills --to 2' 'rename Trips/Hills Alps' 'move Trips/Alps --to 0' 'remove Trips/Sea/High --yes' \
  'add Inbox' 'remove Inbox --yes'; do
  # shellcheck disable=SC2086
  run 0 project $change -L Films
  kill_service
done
run 1 project rename Trips/Alps "" -L Films
err_has "needs a name"
run 1 project move Trips/Alps --into Trips/Alps -L Films
err_has "cannot lie in itself"
run 0 --json project list -L Films
is '[r["path"] for r in rows]' "['Trips', 'Trips/Alps', 'Trips/Sea']"
run 0 project remove Trips/Alps --yes -L Films
run 0 import "$work/media" -L Films -P Trips/Sea
run 1 project remove Trips -L Films
err_has "holds 20 assets"
kill_service
run 0 library rename Films "Sea films"
kill_service
run 0 library backup "Sea films"
is_sound "$(packaged "$work/Films")"

# Going back to the backup has to be confirmed.
echo late >"$work/late.txt"
run 0 import "$work/late.txt" -L "Sea films" -P Trips
run 1 library restore "Sea films"
err_has "--yes"
holds "Sea films" 21
run 0 library restore "Sea films" --yes
holds "Sea films" 20
run 0 import "$work/late.txt" -L "Sea films" -P Trips
kill_service

# Out of the list, moved, renamed, and in again: everything is there, the last change too.
run 0 library delete "Sea films"
run 0 --json library list
is 'len(rows)' 0
[ -z "$(ls "$VORNEX_ROOT/Database")" ] || fail "a working database stays behind"
kill_service
mv "$work/Films" "$work/elsewhere/Renamed"
run 1 library import "$work/Films"
err_has "there is no library"
run 0 library import "$work/elsewhere/Renamed"
kill_service
holds "Sea films" 21
run 0 --json project list -L "Sea films"
is '[r["path"] for r in rows]' "['Trips', 'Trips/Sea']"

# A folder that is moved while the library is in the list.
mv "$work/elsewhere/Renamed" "$work/elsewhere/Moved"
run 1 --json library reload
is 'rows[0]["usable"]' False
run 1 library rename "Sea films" "Lake films"
err_has "there is no folder"
run 1 library backup --library "Sea films"
err_has "there is no folder"
run 0 library import "$work/elsewhere/Moved"
run 0 --json library reload
is '(rows[0]["usable"], rows[0]["path"])' "(True, '$work/elsewhere/Moved')"
run 1 library import "$work/elsewhere/Moved"
err_has "already"

# On another computer.
run 0 library backup
cp -r "$work/elsewhere/Moved" "$work/elsewhere/Copied"
VORNEX_ROOT=$work/other-root
run 0 library import "$work/elsewhere/Copied"
holds "Sea films" 21
is 'rows[0]["file"].startswith("'"$work"'/elsewhere/Copied/")' True
# A database of a newer version is refused, and nothing of it stays.
run 0 library delete "Sea films"
sqlite3 "$(packaged "$work/elsewhere/Copied")" 'PRAGMA user_version = 99'
run 1 library import "$work/elsewhere/Copied"
err_has "newer version"
run 0 --json library list
is 'len(rows)' 0
[ -z "$(ls "$VORNEX_ROOT/Database")" ] || fail "a failed import leaves a working database"
run 0 stop
export VORNEX_ROOT=$work/root

# Two computers back up into one package at once: their copies wait for one another, and one of them stays whole.
run 0 stop
cp -r "$VORNEX_ROOT" "$work/twin-root"
for i in 1 2 3; do
  "$vornex" library backup >/dev/null 2>"$work/first" &
  first=$!
  VORNEX_ROOT=$work/twin-root "$vornex" library backup >/dev/null 2>"$work/second" || fail "$(cat "$work/second")"
  wait "$first" || fail "$(cat "$work/first")"
  is_sound "$(packaged "$work/elsewhere/Moved")"
  [ "$(ls "$work/elsewhere/Moved/Database" | wc -l)" = 1 ] || fail "a backup leaves something behind"
done
VORNEX_ROOT=$work/twin-root run 0 stop
run 0 library backup

# Commands come and go while a library goes back to its backup: none of them opens what is being exchanged.
for i in 1 2 3 4 5 6; do
  echo "$i" >"$work/extra $i.txt"
  run 0 import "$work/extra $i.txt" -L "Sea films" -P Trips
  "$vornex" library restore "Sea films" --yes >/dev/null 2>"$work/restored" &
  restoring=$!
  while kill -0 "$restoring" 2>/dev/null; do run 0 --json library list; done
  wait "$restoring" || fail "a restore fails: $(cat "$work/restored")"
  holds "Sea films" 21
done

# A package that another computer has locked is taken over only when that is confirmed.
run 0 library delete "Sea films"
touch "$work/elsewhere/Moved/.sysUUID_another.lock"
run 1 library import "$work/elsewhere/Moved"
run 1 library import "$work/elsewhere/Moved" --force
err_has "--yes"
run 0 library import "$work/elsewhere/Moved" --force --yes
[ ! -e "$work/elsewhere/Moved/.sysUUID_another.lock" ] || fail "the lock stays"
holds "Sea films" 21

# A disk is unplugged while its library leaves the list, and was used elsewhere before it comes back: what was
# changed there is taken, and what was changed here is kept.
mv "$work/elsewhere/Moved" "$work/unplugged"
run 0 library delete "Sea films"
out_has "stays in"
mv "$work/unplugged" "$work/elsewhere/Moved"
export VORNEX_ROOT=$work/other-root
run 0 library import "$work/elsewhere/Moved"
run 0 import "$work/extra 1.txt" -L "Sea films" -P Trips
run 0 library delete "Sea films"
run 0 stop
export VORNEX_ROOT=$work/root
run 0 library import "$work/elsewhere/Moved"
kept=$(sed -n 's/.* is kept in \(.*\)\.$/\1/p' "$work/out")
holds "Sea films" 22
[ -e "$kept/library.sqlite" ] || fail "what was changed here is lost"
rm -r "$kept"

# A library is backed up while it is written to: every copy is sound and holds what was acknowledged before.
mkdir "$work/many"
for i in $(seq 60); do echo "$i" >"$work/many/$i.dat"; done
"$vornex" --json import "$work/many" -L "Sea films" -P Trips >"$work/imported" 2>"$work/err" &
import=$!
until [ -s "$work/imported" ]; do sleep 0.02; done
while kill -0 "$import" 2>/dev/null; do
  acknowledged=$(grep -c '"result":"imported"' "$work/imported")
  run 0 library backup
  is_sound "$(packaged "$work/elsewhere/Moved")"
  copied=$(sqlite3 "$(packaged "$work/elsewhere/Moved")" 'SELECT count(*) FROM assets')
  [ "$copied" -ge "$((22 + acknowledged))" ] || fail "a backup lacks what was acknowledged before it"
done
wait "$import" || fail "an import ends with $? while the library is backed up"
holds "Sea films" 82

# Commands and the service are killed in the middle of leaving and coming back, and simply repeated.
for round in $(seq 6); do
  "$vornex" library delete "Sea films" >/dev/null 2>&1 &
  victim=$!
  sleep "0.0$((RANDOM % 10))"
  [ "$((round % 2))" = 0 ] || kill -9 "$victim" 2>/dev/null
  [ "$((round % 3))" = 0 ] && kill_service
  wait "$victim" 2>/dev/null
  run 0 --json library list
  [ "$(json 'len(rows)')" = 0 ] || run 0 library delete "Sea films"
  is_sound "$(packaged "$work/elsewhere/Moved")"
  "$vornex" library import "$work/elsewhere/Moved" >/dev/null 2>&1 &
  victim=$!
  sleep "0.0$((RANDOM % 10))"
  [ "$((round % 2))" = 1 ] || kill -9 "$victim" 2>/dev/null
  [ "$((round % 3))" = 1 ] && kill_service
  wait "$victim" 2>/dev/null
  run 0 --json library list
  [ "$(json 'len(rows)')" = 1 ] || run 0 library import "$work/elsewhere/Moved"
  holds "Sea films" 82
done

# A package on another file system, which fills up: the backup fails and the earlier one stays.
if [ "$(id -u)" -eq 0 ] && mkdir "$work/small" && mount -t tmpfs -o size=24m tmpfs "$work/small" 2>/dev/null; then
  mounted=$work/small
  run 0 library create "$work/small/Full"
  run 0 project add Inbox -L Full
  run 0 import "$work/late.txt" -L Full
  run 0 library backup Full
  head -c 100M /dev/zero >"$work/small/filler" 2>/dev/null
  run 1 library backup Full
  grep -qiE 'full|space' "$work/err" || fail "a full disk is not named: $(cat "$work/err")"
  run 1 library delete Full
  is_sound "$(packaged "$work/small/Full")"
  holds Full 1
  rm "$work/small/filler"
  run 0 library delete Full
  run 0 library import "$work/small/Full"
  holds Full 1
  if mkdir "$work/small/Full/busy" && mount -t tmpfs tmpfs "$work/small/Full/busy"; then
    run 1 library delete Full --everything --yes
    [ -f "$work/small/Full/library.plist" ] || fail "a package that cannot be removed loses its record"
    umount "$work/small/Full/busy"
  fi
  run 0 library delete Full --everything --yes
  [ ! -e "$work/small/Full" ] || fail "a package stays behind"
fi

# Everything goes, once it is confirmed.
run 1 library delete "Sea films" --everything
[ -f "$work/elsewhere/Moved/library.plist" ] || fail "removed without a question"
run 0 library delete "Sea films" --everything --yes
[ ! -e "$work/elsewhere/Moved" ] || fail "the package folder stays behind"
[ -z "$(ls "$VORNEX_ROOT/Database")" ] || fail "a database stays behind"
