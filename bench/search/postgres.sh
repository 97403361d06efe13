#!/bin/sh
# postgres.sh FOLDER start|stop|load N|query N: a private PostgreSQL on a Unix socket below the folder, with the
# documents in documents_N.ndjson there. Rows go to standard output as bench_search prints them.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$1 command=$2
programs=$(ls -d /usr/lib/postgresql/*/bin | tail -1)
export PGHOST=$folder/pg PGPORT=5499 PGUSER=bench PGDATABASE=postgres
as_user() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }

case $command in
start)
  mkdir -p "$PGHOST"
  chmod 700 "$PGHOST"
  [ "$(id -u)" != 0 ] || { chown postgres "$PGHOST"; chmod o+x "$folder"; }
  [ -d "$PGHOST/base" ] || as_user "$programs/initdb" -D "$PGHOST" -U bench --locale=C.UTF-8 -E UTF8 -A trust >/dev/null
  as_user "$programs/pg_ctl" -D "$PGHOST" -l "$PGHOST/log" -w start -o "-p $PGPORT -k $PGHOST -c listen_addresses= \
    -c shared_buffers=4GB -c effective_cache_size=14GB -c work_mem=64MB -c maintenance_work_mem=1GB \
    -c random_page_cost=1.1 -c max_wal_size=8GB -c checkpoint_timeout=15min -c default_toast_compression=lz4 \
    -c jit=off -c synchronous_commit=on" >/dev/null ;;
stop)
  as_user "$programs/pg_ctl" -D "$PGHOST" -m fast -w stop >/dev/null ;;
load)
  psql -qX -c 'SET client_min_messages = warning' -f "$here/schema.sql"
  begin=$(date +%s.%N)
  # A commit for each 1,000 documents.
  sed 's/\\/\\\\/g' "$folder/documents_$3.ndjson" |
    awk 'NR % 1000 == 1 { if (NR > 1) print "\\."; print "COPY assets(doc) FROM STDIN;" } { print } END { print "\\." }' |
    psql -qX
  end=$(date +%s.%N)
  echo "$3 $begin $end" | awk '{ printf "PostgreSQL\tcreate 1,000\t%d\t%.3f\t0\t%.0f documents/s\n", $1 / 1000, ($3 - $2) / $1 * 1e6, $1 / ($3 - $2) }'
  psql -qX -c 'VACUUM (ANALYZE) assets' -c CHECKPOINT ;;
query)
  scripts=$(mktemp -d)
  "$BENCH_SEARCH" postgres "$3" "$scripts"
  row() { # CLASS TOTALS: the latencies in pgbench's logs, microseconds in the third column
    cat "$scripts"/log* | awk '{ print $3 / 1000 }' | sort -n | awk -v name="$1" -v totals="$2" \
      '{ a[NR] = $1 } END { printf "PostgreSQL\t%s\t%d\t%.3f\t%.3f\t%s\n", name, NR, a[int((NR + 1) / 2)], a[int(NR * .99)], totals }'
    rm -f "$scripts"/log*
  }
  ls "$scripts" | sed 's/\.[0-9]*\.sql$//' | sort -u | while read -r name; do
    totals=
    for script in "$scripts/$name".*.sql; do
      totals="$totals$(tail -1 "$script" | psql -qXAt) "
      (cd "$scripts" && "$programs/pgbench" -n -t "${RUNS:-10}" -l --log-prefix="log$(basename "$script" .sql | tr ' ,' '__')" -f "$script" >/dev/null 2>&1)
    done
    row "$name" "$totals"
  done
  set --
  for script in "$scripts/one common term".*.sql; do set -- "$@" -f "$script"; done
  (cd "$scripts" && "$programs/pgbench" -n -c 16 -j 2 -T 20 -l --log-prefix=log "$@" >/dev/null 2>&1)
  row "16 clients" "$(cat "$scripts"/log* | wc -l | awk '{ printf "%.0f queries/s", $1 / 20 }')"
  rm -rf "$scripts" ;;
esac
