# Kills the importing process and the service in turn, again and again, in one long import that is resumed each time.
# Usage: killed_imports.sh VORNEX [KILLS]   (4 by default; 50 for the long version)
source "$(dirname "$0")/harness.sh"
kills=${2:-4}

# Photographs that need a preview, small ones, and files without a picture.
media=$work/media
mkdir "$media"
vips perlin "$work/noise.v" 1800 1350 --cell-size 64 --uchar
vips jpegsave "$work/noise.v" "$work/large.jpg"
vips thumbnail "$work/noise.v" "$work/small.jpg" 500
files=$((kills * 12))
for i in $(seq "$files"); do
  case $((i % 3)) in
    0) cp "$work/large.jpg" "$media/large $i.jpg" ;;
    1) cp "$work/small.jpg" "$media/small $i.jpg" ;;
    # Some decoder knows random bytes now and then.
    2) { echo "nothing that anybody knows" && head -c $((i * 1000)) /dev/zero; } >"$media/data $i.blob" ;;
  esac
done
run 0 library create "$work/Library"
run 0 project add Inbox

placed() { find "$work/Library/Media/Master" -type f 2>/dev/null | wc -l; }

import=
begin_import() {
  "$vornex" --json import --resume "$media" >"$work/import.out" 2>"$work/import.err" &
  import=$!
}

done_kills=0
begin_import
while [ "$done_kills" -lt "$kills" ] && [ "$(placed)" -lt "$files" ]; do
  kill -0 "$import" 2>/dev/null || begin_import
  # Somewhere within the next few files.
  goal=$(($(placed) + 1 + RANDOM % 4))
  for _ in $(seq 500); do
    [ "$(placed)" -lt "$goal" ] && [ "$(placed)" -lt "$files" ] && kill -0 "$import" 2>/dev/null || break
    sleep 0.02
  done
  sleep "0.0$((RANDOM % 10))"
  if [ $((done_kills % 2)) -eq 0 ]; then
    kill -9 "$import" 2>/dev/null && done_kills=$((done_kills + 1))
    wait "$import" 2>/dev/null
  else
    kill -9 "$(service_process)" 2>/dev/null && done_kills=$((done_kills + 1))
  fi
done
wait "$import" 2>/dev/null
[ "$done_kills" -ge "$((kills * 3 / 4))" ] || fail "the import ended after $done_kills kills"
run 0 --json import --resume "$media"
is 'rows[-1]["failed"]' 0
run 0 --json import --resume "$media"
is 'rows[-1]["imported"]' 0

# Every file once, every record with its file, every file with its record.
run 0 --json search '' --limit 1000
is 'rows[-1]["total"]' "$files"
is 'len({r["source"] for r in rows[:-1]}), len({r["file"] for r in rows[:-1]})' "($files, $files)"
is 'all(open(r["file"], "rb").read() == open(r["source"], "rb").read() for r in rows[:-1])' True
[ "$(placed)" -eq "$files" ] || fail "$(placed) files for $files records"
is 'sorted({r["name"].split()[0] for r in rows[:-1] if not r["thumbnail"]})' "['data']"
[ "$(find "$work/Library/Media/Preview" -type f | wc -l)" -eq $((files / 3)) ] || fail "previews are missing or too many"
[ "$(find "$work/Library/Media/Thumbnail" -type f | wc -l)" -eq "$(ls "$media" | grep -c jpg)" ] ||
  fail "thumbnails are missing or too many: $(find "$work/Library/Media/Thumbnail" -type f)"
while IFS= read -r picture; do
  vips avg "$picture" >/dev/null 2>&1 || fail "$picture does not open"
done < <(find "$work/Library/Media/Thumbnail" "$work/Library/Media/Preview" -type f)
leftovers=$(find "$work/Library/Media" -name '.vornex-*')
[ -z "$leftovers" ] || fail "left behind: $leftovers"
echo "$done_kills kills, $files files"
