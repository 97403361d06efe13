# Kills the importing process and the service in turn, again and again, in one long import that is resumed each time:
# by copy, by reference, and by reference to copies in a folder of the user's.
# Usage: killed_imports.sh VORNEX [KILLS]   (4 for each kind by default; 50 for the long version)
source "$(dirname "$0")/harness.sh"
kills=${2:-4}

# Photographs that need a preview, small ones, files without a picture, and folders of clips in several parts.
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
    2) head -c $((i * 1000)) /dev/urandom >"$media/data $i.blob" ;;
  esac
done
mkdir "$work/clips"
for i in $(seq $((kills * 3))); do
  clip=$(printf A001_C%03d_0101AB "$i")
  mkdir "$work/clips/$clip.RDC"
  for part in 001 002; do head -c 3M /dev/urandom >"$work/clips/$clip.RDC/${clip}_$part.R3D"; done
done

imported() { find "$library/Media/Master" \( -type f -o -type l \) 2>/dev/null | wc -l; }

# import_with_kills COUNT OPTION...: until that many files are there.
import_with_kills() {
  local count=$1 import='' done_kills=0 goal
  shift
  begin() {
    "$vornex" --json import --resume "${chosen[@]}" "$@" >"$work/import.out" 2>"$work/import.err" &
    import=$!
  }
  begin "$@"
  while [ "$done_kills" -lt "$kills" ] && [ "$(imported)" -lt "$count" ]; do
    kill -0 "$import" 2>/dev/null || begin "$@"
    # Somewhere within the next few files.
    goal=$(($(imported) + 1 + RANDOM % 4))
    for _ in $(seq 500); do
      [ "$(imported)" -lt "$goal" ] && [ "$(imported)" -lt "$count" ] && kill -0 "$import" 2>/dev/null || break
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
  run 0 --json import --resume "${chosen[@]}" "$@"
  is 'rows[-1]["failed"]' 0
  run 0 --json import --resume "${chosen[@]}" "$@"
  is 'rows[-1]["imported"]' 0
  # Every file once, every record with its file, every file with its record.
  [ "$(imported)" -eq "$count" ] || fail "$(imported) files, not $count"
  run 0 --json search '' "${chosen[@]}" --limit 1000
  is 'rows[-1]["total"]' "$count"
  is 'len({r["file"] for r in rows[:-1]})' "$count"
  leftovers=$(find "$library/Media" "$work/target" -name '.vornex-*' 2>/dev/null)
  [ -z "$leftovers" ] || fail "left behind: $leftovers"
}

# new_library NAME: the one that is imported into from now on.
new_library() {
  library=$work/$1
  chosen=(-L "$1")
  run 0 library create "$library"
  run 0 project add Inbox "${chosen[@]}"
}

# pictures_are_whole COUNT: of the previews.
pictures_are_whole() {
  is 'sorted({r["name"].split()[0].split("_")[0] for r in rows[:-1] if not r["thumbnail"]} - {"A001"})' "['data']"
  [ "$(find "$library/Media/Preview" -type f | wc -l)" -eq "$1" ] || fail "previews are missing or too many"
  [ "$(find "$library/Media/Thumbnail" -type f | wc -l)" -eq "$photos" ] ||
    fail "thumbnails are missing or too many: $(find "$library/Media/Thumbnail" -type f)"
  while IFS= read -r picture; do
    vips avg "$picture" >/dev/null 2>&1 || fail "$picture does not open"
  done < <(find "$library/Media/Thumbnail" "$library/Media/Preview" -type f)
}

sums() { find "$@" -type f -exec md5sum {} + | cut -d ' ' -f 1 | sort; }

photos=$(ls "$media" | grep -c jpg)
new_library Copies
import_with_kills "$files" "$media"
is 'all(open(r["file"], "rb").read() == open(r["source"], "rb").read() for r in rows[:-1])' True
pictures_are_whole $((files / 3))

new_library References
import_with_kills "$files" --reference "$media"
is 'all(open(r["file"], "rb").read() == open(r["source"], "rb").read() for r in rows[:-1])' True
pictures_are_whole "$photos"

# What is in the user's folder is what was imported, once.
mkdir "$work/target"
new_library Targets
import_with_kills "$((files + kills * 3))" --reference --target "$work/target" "$media" "$work/clips"
is 'all(open(r["file"], "rb").read() == open(r["source"], "rb").read() for r in rows[:-1])' True
pictures_are_whole "$photos"
[ "$(sums "$work/target")" = "$(sums "$media" "$work/clips")" ] || fail "copies are missing or too many: $(ls "$work/target")"
echo "$files files"
