#!/usr/bin/env bash
# Jobs side by side in one process: `vqfe extract --kind all` over the same photos with
# --jobs 1 (the baseline) and --jobs 2, one after the other, in rounds: images per second
# of wall time, the speed-up, processor time per image, peak resident memory and what the
# second job adds to it. "cores" is processor time over wall time: what the run got of the
# machine; two jobs can only scale when it nears 2 (on a busy machine it does not).
#   bench/jobs_scaling.sh [PHOTOS [SIDE [ROUNDS]]]   default 51 photos, 512 px, 2 rounds
# The photos are scripts/quality's (its cache, when it holds enough) or else testdata/'s,
# scaled to SIDE and saved as JPEG. Needs a default build (scripts/bench builds one).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
count=${1:-51}
side=${2:-512}
rounds=${3:-2}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

source "$root/bench/bench_photos.sh"
source "$root/bench/median.sh"
bench_photos "$count" "$side" "$work/photos"

echo "vqfe extract --kind all, $count photos of $side px from $photos_from; load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-6s %5s %10s %9s %12s %6s %12s\n' round jobs images/s speed-up "cpu ms/img" cores "peak RSS MB"
speedups=()
for round in $(seq "$rounds"); do
  for jobs in 1 2; do
    /usr/bin/time -f '%e %U %S %M' -o "$work/time" \
      "$root/build/bin/vqfe" extract --kind all --jobs "$jobs" "$work/photos" >/dev/null 2>"$work/stderr" ||
      { cat "$work/stderr" >&2; exit 1; }
    read -r wall user sys rss <"$work/time"
    [[ $jobs == 1 ]] && base_wall=$wall base_rss=$rss
    row=$(awk -v r="$round" -v j="$jobs" -v n="$count" -v w="$wall" -v u="$user" -v s="$sys" -v m="$rss" \
      -v bw="$base_wall" -v bm="$base_rss" 'BEGIN {
        printf "%-6s %5s %10.2f %9.2f %12.0f %6.2f %12.0f", r, j, n / w, bw / w, 1000 * (u + s) / n, (u + s) / w, m / 1024
        if (j > 1) printf "   (+%.0f MB per extra job)", (m - bm) / 1024 / (j - 1) }')
    echo "$row"
    [[ $jobs == 1 ]] || speedups+=("$(awk '{ print $4 }' <<<"$row")")
  done
done
echo "median speed-up over the rounds: $(median "${speedups[@]}")"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
