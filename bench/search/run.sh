#!/bin/sh
# run.sh FOLDER N...: makes N documents, measures vornexd, a scan in memory and PostgreSQL on them, and prints
# a table for each N. Takes half an hour and 10 GB at a million. PostgreSQL (apt-get install postgresql) is needed for
# nothing else. VORNEXD and BENCH_SEARCH name the programs.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$1
shift
: "${VORNEXD:=$here/../../build/release/bin/vornexd}" "${BENCH_SEARCH:=$here/../../build/release/bin/bench_search}"
export BENCH_SEARCH
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
sh "$here/postgres.sh" "$folder" start
trap 'sh "$here/postgres.sh" "$folder" stop' EXIT
for n in "$@"; do
  documents=$folder/documents_$n.ndjson
  rows=$folder/results_$n.tsv
  [ -s "$documents" ] || "$BENCH_SEARCH" documents "$n" >"$documents"
  rm -rf "$folder/service" "$folder/service.two"
  {
    "$BENCH_SEARCH" append "$documents" "$folder/append"
    sh "$here/postgres.sh" "$folder" load "$n"
    "$BENCH_SEARCH" service "$n" "$documents" "$VORNEXD" "$folder/service"
    sh "$here/postgres.sh" "$folder" query "$n"
    "$BENCH_SEARCH" scan "$n" "$documents"
  } >"$rows"
  rm -f "$folder/append"
  echo "$n documents, $(nproc) processors, load $(cut -d' ' -f1-3 /proc/loadavg)"
  sh "$here/table.sh" "$rows"
done
