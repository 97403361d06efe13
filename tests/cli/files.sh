# What becomes of all kinds of files and folders, and of an interrupted import.
source "$(dirname "$0")/harness.sh"
cleanup() { chmod -R u+rwX "$work"; }

run 0 library create "$work/Library"
run 0 project add Inbox

media=$work/media
mkdir -p "$media/deep/loop" "$media/.hidden"
vips perlin "$work/noise.v" 800 600 --cell-size 64 --uchar
vips jpegsave "$work/noise.v" "$media/whole.jpg"
head -c "$(($(stat -c %s "$media/whole.jpg") / 2))" "$media/whole.jpg" >"$media/half.jpg"
head -c 200 "$media/whole.jpg" >"$media/stump.jpg"
: >"$media/empty.mov"
cp "$media/whole.jpg" "$media/two  blanks \"and\" 'quotes'.jpg"
cp "$media/whole.jpg" "$media/line"$'\n'"break.jpg"
cp "$media/whole.jpg" "$media/emoji 👨‍👩‍👧.jpg"
cp "$media/whole.jpg" "$media/e"$'\u0301'" decomposed.jpg"
cp "$media/whole.jpg" "$media/byte"$'\xff'".jpg"
cp "$media/whole.jpg" "$media/-dash.jpg"
printf x >"$media/.hidden/file"
ln -s ../.. "$media/deep/loop/up"
ln -s nowhere "$media/dangling"
mkfifo "$media/pipe"

run 1 --json import "$media" "$work/missing"
is 'rows[-1]["imported"]' 10
is 'sorted((r["path"].split("/")[-1], r["reason"]) for r in rows if r.get("result") == "failed")' \
  "[('dangling', 'a link to something that does not exist'), ('missing', 'no such file or folder')]"
is '(rows[-1]["hidden"], sum(r.get("result") == "skipped" for r in rows))' "(1, 2)"
is 'sorted(r["path"].split("/")[-1] for r in rows if r.get("warning"))' "['empty.mov', 'stump.jpg']"
err_has "vornex: 2 files not imported"

# Every whole picture has its thumbnail, and every copy is whole.
run 0 --json search '' --limit 1000
is 'sorted(r["name"] for r in rows[:-1] if not r["thumbnail"])' "['empty', 'stump']"
is 'all(open(r["file"], "rb").read() == open(r["source"].replace("%FF", "\udcff"), "rb").read() for r in rows[:-1])' True

# A second run with --resume takes what is new or changed only; the library itself is never imported.
printf 'late\n' >"$media/late.txt"
touch -d 2001-01-01 "$media/whole.jpg"
run 1 --json import --resume "$media"
is '(rows[-1]["imported"], rows[-1]["held"])' "(2, 9)"
run 0 --json import --resume "$work/Library" "$work/root"
is '(rows[-1]["imported"], sum(r["kind"] == "file" and r["result"] == "skipped" for r in rows))' "(0, 2)"

# References stay where they are.
run 0 --json import --reference "$media/late.txt"
run 0 --json search late --sort importdate --descending
is 'rows[0]["reference"]' True
mkdir "$work/target"
echo moved > "$media/moved.txt"
run 0 import --reference --target "$work/target" "$media/moved.txt"
[ -f "$work/target/moved.txt" ] || fail "a reference with a target is not copied there"
run 0 --json import --resume --reference --target "$work/target" "$media/moved.txt"
is '(rows[-1]["imported"], rows[-1]["held"])' "(0, 1)"
run 1 import --reference --target "$work/no target" "$media/late.txt"
err_has "target"

# A file that may not be read fails alone. Root may read everything, so it steps down.
mkdir "$work/locked"
printf 1 >"$work/locked/a.txt"
printf 2 >"$work/locked/b.txt"
printf 3 >"$work/locked/c.txt"
chmod 000 "$work/locked/b.txt"
if [ "$(id -u)" -eq 0 ]; then
  run 0 stop
  as_nobody=(setpriv --reuid=65534 --regid=65534 --clear-groups)
  chmod 777 "$work"
  chown 65534:65534 "$work/home"
  export VORNEX_ROOT=$work/nobody-root HOME=$work/home
  "${as_nobody[@]}" "$vornex" library create "$work/home/Own" >/dev/null || fail "nobody cannot create a library"
  "${as_nobody[@]}" "$vornex" project add Inbox >/dev/null
  "${as_nobody[@]}" "$vornex" --json import "$work/locked" >"$work/out" 2>"$work/err" && fail "an unreadable file goes unnoticed"
  "${as_nobody[@]}" "$vornex" stop >/dev/null
  export VORNEX_ROOT=$work/root
else
  run 1 --json import "$work/locked"
fi
is '[r["result"] for r in rows if r["kind"] == "file"]' "['imported', 'failed', 'imported']"

# Ctrl-C in the middle of a copy: the file in hand leaves nothing behind, and what was acknowledged stays.
mkdir "$work/large"
for i in 1 2 3 4; do
  head -c 400M /dev/zero >"$work/large/$i.bin"
done
before=$(run 0 --json search bin; json 'rows[-1]["total"]')
"$vornex" --json import "$work/large" >"$work/out" 2>"$work/err" &
import=$!
until [ -n "$(find "$work/Library/Media/Master" -size +8M)" ]; do sleep 0.02; done
kill -INT "$import"
wait "$import" && fail "an interrupted import ends well"
stopped=$(json 'rows[-1]["imported"]')
[ "$stopped" -lt 4 ] || fail "the interrupt did not stop the import"
err_has "Ctrl-C again"
run 0 --json search bin --limit 1000
is 'rows[-1]["total"]' "$((before + stopped))"
[ "$(find "$work/Library/Media/Master" -name '*.bin*' | wc -l)" -eq "$((before + stopped))" ] ||
  fail "an interrupted copy left a file behind"
run 0 --json import --resume "$work/large"
is 'rows[-1]["imported"]' "$((4 - stopped))"
