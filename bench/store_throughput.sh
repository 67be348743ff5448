#!/usr/bin/env bash
# Throughput of the tool over one store: SQLite (`vqfe extract --store FILE --jobs N`)
# against PostgreSQL (`vqfe work` in N processes after `vqfe enqueue`), 1 and 2 workers,
# plus the cached walk (the same extract again, answered from the store), then
# bench_store (store writes and reads). The server is a throw-away cluster that commits
# durably (fsync on), on a Unix socket, stopped on the way out.
#   bench/store_throughput.sh [IMAGES [SIDE [KIND]]]   default 200 images, 256 px, face
# Needs a default build (scripts/bench or cmake --build --preset default).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
vqfe="$root/build/bin/vqfe"
count=${1:-200}
side=${2:-256}
kind=${3:-face}
work=$(mktemp -d)
chmod 755 "$work"  # the server account (when run as root) must reach its directory
trap '"$root/scripts/pg_cluster" stop "$work/pg"; rm -rf "$work"' EXIT
uri=$(VQFE_PG_FSYNC=on "$root/scripts/pg_cluster" start "$work/pg")
python3 "$root/testing/make_pngs.py" "$work/images" "$count" "$side"
rm "$work/images/corrupt.png"

# measure LABEL COMMAND...: images per second of wall time, and CPU milliseconds (user +
# system, all processes) per image, which a machine shared with other work disturbs less.
measure() {
  local label=$1 TIMEFORMAT='%R %U %S' times; shift
  times=$({ time "$@" >/dev/null 2>&1; } 2>&1)
  awk -v label="$label" -v n="$count" -v t="$times" \
    'BEGIN { split(t, f, " "); printf "%-46s %9.1f %12.1f\n", label, n / f[1], 1000 * (f[2] + f[3]) / n }'
}
fresh_db() { psql "$uri" -XAtq -c "SET client_min_messages = warning" -c "DROP DATABASE IF EXISTS $1" -c "CREATE DATABASE $1"; echo "$uri&dbname=$1"; }
pg_workers() {  # pg_workers N URI: N worker processes until the queue is empty
  local pids=() i
  for ((i = 0; i < $1; i++)); do "$vqfe" work --store "$2" >/dev/null 2>&1 & pids+=($!); done
  wait "${pids[@]}"
}

echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
printf "%-46s %9s %12s\n" "$count images, ${side}px, $kind" "images/s" "CPU ms/image"
for n in 1 2; do
  measure "SQLite store, extract --jobs $n" "$vqfe" extract --kind "$kind" --jobs "$n" --store "$work/s$n.db" "$work/images"
  db=$(fresh_db "w$n")
  "$vqfe" enqueue --kind "$kind" --store "$db" "$work/images" >/dev/null
  measure "PostgreSQL store, $n work process(es)" pg_workers "$n" "$db"
done
measure "cached walk, SQLite store (extract again)" "$vqfe" extract --kind "$kind" --store "$work/s1.db" "$work/images"
measure "cached walk, PostgreSQL store (extract again)" \
  "$vqfe" extract --kind "$kind" --store "$uri&dbname=w1" "$work/images"

VQFE_BENCH_PG_URI="$(fresh_db bench)" "$root/build/bin/bench_store" --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true 2>/dev/null | grep -E '^(saveOne|saveBatch|cachedWalk).*_median'
