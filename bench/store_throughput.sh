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
trap '"$root/scripts/pg_cluster" stop "$work/pg"; rm -rf "$work"' EXIT
uri=$(VQFE_PG_FSYNC=on "$root/scripts/pg_cluster" start "$work/pg")
python3 "$root/testing/make_pngs.py" "$work/images" "$count" "$side"
rm "$work/images/corrupt.png"

seconds() { local start=$(date +%s.%N); "$@" >/dev/null 2>&1; awk "BEGIN { print $(date +%s.%N) - $start }"; }
rate() { awk "BEGIN { printf \"%.1f\", $count / $1 }"; }
fresh_db() { psql "$uri" -XAtq -c "DROP DATABASE IF EXISTS $1" -c "CREATE DATABASE $1"; echo "$uri&dbname=$1"; }
pg_workers() {  # pg_workers N URI: N worker processes until the queue is empty
  local pids=() i
  for ((i = 0; i < $1; i++)); do "$vqfe" work --store "$2" >/dev/null 2>&1 & pids+=($!); done
  wait "${pids[@]}"
}

printf "%-44s %10s\n" "measure ($count images, ${side}px, $kind)" "images/s"
for n in 1 2; do
  t=$(seconds "$vqfe" extract --kind "$kind" --jobs "$n" --store "$work/s$n.db" "$work/images")
  printf "%-44s %10s\n" "SQLite store, extract --jobs $n" "$(rate "$t")"
  db=$(fresh_db "w$n")
  "$vqfe" enqueue --kind "$kind" --store "$db" "$work/images" >/dev/null
  t=$(seconds pg_workers "$n" "$db")
  printf "%-44s %10s\n" "PostgreSQL store, $n work process(es)" "$(rate "$t")"
done
t=$(seconds "$vqfe" extract --kind "$kind" --store "$work/s1.db" "$work/images")
printf "%-44s %10s\n" "cached walk, SQLite store (extract again)" "$(rate "$t")"
t=$(seconds "$vqfe" extract --kind "$kind" --store "$uri&dbname=w1" "$work/images")
printf "%-44s %10s\n" "cached walk, PostgreSQL store (extract again)" "$(rate "$t")"

VQFE_BENCH_PG_URI="$(fresh_db bench)" "$root/build/bin/bench_store" --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true 2>/dev/null | grep -E '^(saveOne|saveBatch|cachedWalk).*_median'
