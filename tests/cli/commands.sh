# The commands, their exit codes and their output.
source "$(dirname "$0")/harness.sh"

# Looking does not start anything.
run 0 status
out_has "does not run"
run 0 stop
[ ! -e "$VORNEX_ROOT/Service/vornexd.log" ] || fail "status or stop started the service"

# Mistakes in usage go to standard error alone.
run 2 frobnicate
[ ! -s "$work/out" ] || fail "a mistake in usage prints on standard output"
run 2 import
run 0 search --help
out_has "--descending"

# Commands start the service; it stays, and a second one finds it, whatever port it asks for.
run 0 --json library list
is 'len(rows)' 0
run 0 --json status
is 'rows[0]["running"]' True
port=$(json 'rows[0]["port"]')
run 0 --json serve --port 1
is 'rows[0]["port"]' "$port"

# Libraries by path, by plain name, and mistakes.
run 0 library create "$work/Holiday  films" --description "All of them"
run 0 library create Photos
[ -f "$HOME/Vornex/Photos/library.plist" ] || fail "a plain name makes no library below ~/Vornex"
run 1 library create Photos
err_has "exists"
[ "$(wc -l <"$work/err")" -eq 1 ] || fail "a failure says more than one line: $(cat "$work/err")"
run 1 library create "$work/Nameless" --name " "
run 1 library create "$work/no/such/folder"
err_has "there is no folder $work/no/such"
run 0 --json library list
is 'sorted(r["name"] for r in rows)' "['Holiday  films', 'Photos']"
is 'all(r["kind"] == "library" and r["dbname"] for r in rows)' True

# The library must be said when there are several.
run 1 project list
err_has "--library"
run 1 project list --library Nothing
err_has '"Photos"'
run 0 --json library list
database=$(json '[r["dbname"] for r in rows if r["name"] == "Photos"][0]')
for library in Photos "$HOME/Vornex/Photos/" "$database"; do
  run 0 library show "$library"
  out_has "$HOME/Vornex/Photos"
done

# Projects and groups.
run 1 import "$0" --library Photos
err_has "vornex project add"
run 0 project add "Trips/2024/Sea" -L Photos
run 0 project add "Trips/2024/Hills" -L Photos
run 1 project add "Trips/2024" -L Photos
err_has "already"
run 1 project add / -L Photos
run 0 --json project list -L Photos
is '[r["path"] for r in rows]' "['Trips', 'Trips/2024', 'Trips/2024/Sea', 'Trips/2024/Hills']"
run 0 project group Trips/2024 "Lakes/Rivers" -L Photos
run 0 project move Trips/2024/Hills --to 0 -L Photos
run 0 project add Work -L Photos
run 0 --json project move Trips/2024/Hills --into Work -L Photos
is '[(r["name"], r["path"]) for r in rows]' "[('Hills', 'Work/Hills')]"
run 0 project move Work --to 0 -L Photos
run 1 project move Work --into Trips -L Photos
run 1 project move Work --to 3 -L Photos
run 2 project move Work -L Photos
run 0 project rename Work/Hills Alps -L Photos
run 1 project rename Work/Alps Alps -L Photos
run 0 project list -L Photos
[ "$(tail -n +2 "$work/out" | sed 's/ *[0-9A-F-]*$//')" = "Work
└─ Alps
Trips
└─ 2024
   ├─ Sea
   └─ Lakes/Rivers" ] || fail "the tree is drawn as $(cat "$work/out")"
# A change that is not saved is none, and says why.
lock=$HOME/Vornex/Photos/Project/.project.plist.lock
rm "$lock" && mkdir "$lock"
for change in 'move Trips --to 0' 'rename Trips Journeys'; do
  # shellcheck disable=SC2086
  run 1 project $change -L Photos
  err_has "could not be saved. (open $lock"
done
rmdir "$lock"
# What is removed has to be agreed to; a group with a slash in its name is named by its identifier.
run 1 project remove Work -L Photos
err_has "--yes"
run 0 --json project list -L Photos
run 0 project remove "$(json '[r["id"] for r in rows if r["name"] == "Lakes/Rivers"][0]')" --yes -L Photos
run 0 project remove Work --yes -L Photos
# Several at once: nobody's project is lost.
for number in 1 2 3 4 5 6; do
  "$vornex" project add "At once/$number" -L Photos >"$work/once$number" 2>&1 &
done
wait
run 0 --json project list -L Photos
is 'sorted(r["path"] for r in rows if r["name"].isdigit() and len(r["name"]) == 1)' \
  "['At once/1', 'At once/2', 'At once/3', 'At once/4', 'At once/5', 'At once/6']"
run 0 project remove "At once" --yes -L Photos
run 0 --json project list -L Photos
is '[r["path"] for r in rows]' "['Trips', 'Trips/2024', 'Trips/2024/Sea']"

# Import into a group, find by name, tag and extension, show.
printf 'words\n' >"$work/Notes.txt"
printf 'more words\n' >"$work/Übung 写真.md"
run 0 --json import "$work/Notes.txt" "$work/Übung 写真.md" -L Photos -P Trips/2024/Sea --tags "sea,summer holiday"
is '[r["result"] for r in rows if r["kind"] == "file"]' "['imported', 'imported']"
is '(rows[-1]["kind"], rows[-1]["imported"], rows[-1]["failed"], rows[-1]["bytes"])' "('summary', 2, 0, 17)"
run 0 --json search summer notes -L Photos
is 'rows[-1]["total"]' 1
for text in Notes 'not' '"summer holiday" AND notes' 'txt'; do
  run 0 --json search "$text" -L Photos
  is '[(r["name"], r["project"], r["tags"]) for r in rows[:-1]]' \
    "[('Notes', 'Trips/2024/Sea', ['sea', 'summer holiday'])]"
done
run 0 --json search übung -L Photos
is 'rows[-1]["total"]' 1
cmp -s "$(json 'rows[0]["file"]')" "$work/Übung 写真.md" || fail "the copy in the package differs"
id=$(json 'rows[0]["id"]')
run 0 --json asset show "$id" -L Photos
is '(rows[0]["name"], rows[0]["metadata"]["_id"])' "('Übung 写真', '$id')"
run 1 asset show 000000000000000000000000 -L Photos
err_has "there is no asset"

# What is said of assets, several at once; nothing changes when one is unknown.
other=$(run 0 --json search Notes -L Photos && json 'rows[0]["id"]')
run 0 asset rate 4 "$id" "$other" -L Photos
out_has "2 assets"
run 0 asset label green "$id" -L Photos
run 0 asset flag "$id" "$other" -L Photos
run 0 asset flag --off "$other" -L Photos
run 1 asset rate 5 "$other" 000000000000000000000000 -L Photos
run 0 --json asset tag "$id" "$other" --add new,sea --remove "summer holiday" -L Photos
is '[(r["tags"], r["rating"], r["color"], r["flagged"]) for r in rows]' \
  "[(['sea', 'new'], 4, 'green', True), (['sea', 'new'], 4, 'none', False)]"
run 0 --json asset show "$id" -L Photos
is '[rows[0][k] for k in ("tags", "rating", "color", "flagged")]' "[['sea', 'new'], 4, 'green', True]"
run 0 asset tag "$id" "$other" --set "sea,summer holiday" -L Photos
run 0 asset open --path "$id" -L Photos
cmp -s "$(cat "$work/out")" "$work/Übung 写真.md" || fail "this is no path of the file: $(cat "$work/out")"
mkdir "$work/bin"
printf '#!/bin/sh\ncp "$1" "%s/opened"\n' "$work" >"$work/bin/xdg-open" && chmod +x "$work/bin/xdg-open"
PATH=$work/bin:$PATH run 0 asset open "$id" -L Photos
cmp -s "$work/opened" "$work/Übung 写真.md" || fail "the file was not opened"
run 0 search '' -L Photos
out_has "2 assets found"
run 1 search 'a AND b OR c' -L Photos
run 1 search '"open' -L Photos

# Pages and order.
run 0 --json search '' -L Photos --sort name --limit 1 --page 1
is '(rows[0]["name"], rows[1]["total"], rows[1]["page"])' "('Übung 写真', 2, 1)"
run 0 --json search '' -L Photos --sort name --descending
is '[r["name"] for r in rows[:-1]]' "['Übung 写真', 'Notes']"
run 0 --json search '' -L Photos --type video
is 'rows[-1]["total"]' 0
run 0 --json search '' -L Photos --trash
is 'rows[-1]["total"]' 0
run 0 --json library show Photos
is '(rows[0]["assets"], rows[0]["types"]["document"])' "(2, 2)"

# Output that cannot be written is a failure.
if [ -w /dev/full ]; then
  "$vornex" search '' -L Photos >/dev/full 2>"$work/err" && fail "a full output device goes unnoticed"
  err_has "could not be written"
fi

# A second service on the same root refuses to run and leaves the first alone.
"$(dirname "$vornex")/vornexd" --port 0 >"$work/out" 2>"$work/err" && fail "a second vornexd runs on the same root"
err_has "already serves"
run 0 --json status
is 'rows[0]["port"]' "$port"

# An occupied port is told, and nothing is left running.
run 0 stop
python3 -c '
import socket, time
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen()
print(s.getsockname()[1], flush=True)
time.sleep(300)' >"$work/port" &
occupant=$!
until [ -s "$work/port" ]; do sleep 0.05; done
run 1 serve --port "$(cat "$work/port")"
err_has "in use"
kill "$occupant"
flock -n "$VORNEX_ROOT/Service/vornexd.lock" true || fail "a service that cannot serve was left running"

# In the foreground the program becomes the service.
"$vornex" serve --foreground >/dev/null 2>&1 &
foreground=$!
for _ in $(seq 100); do
  run 0 --json status
  [ "$(json 'rows[0]["running"]')" = True ] && break
  sleep 0.1
done
is 'rows[0]["running"]' True
run 0 stop
wait "$foreground" || fail "the service in the foreground ended with $?"
