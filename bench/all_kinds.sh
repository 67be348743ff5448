#!/usr/bin/env bash
# All 18 kinds on one thread: `vqfe extract --jobs 1 --kind all` with OpenCV on one thread,
# over photos of SIDE px and over the same photos twice (copies under other names), in
# rounds. Per photo: the processor time the second pass over the photos added, over their
# count, so that the process's start and end, the graph's load and the first passes'
# warm-up (buffers, Tesseract) all stay out. The goal is under 150 ms per photo, the run's
# peak resident memory under 400 MB.
#   bench/all_kinds.sh [PHOTOS [SIDE [ROUNDS]]]   default 20 photos, 512 px, 3 rounds
# The photos are scripts/quality's (its cache, when it holds enough) or else testdata/'s,
# scaled to SIDE and saved as JPEG. Needs a default build (scripts/bench builds one).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
count=${1:-20}
side=${2:-512}
rounds=${3:-3}
# The extractor answers a copy from its original only within one batch (at most 16 photos):
# copies sit `count` apart in name order.
((count >= 16)) || { echo "bench/all_kinds.sh: at least 16 photos" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

source "$root/bench/bench_photos.sh"
source "$root/bench/median.sh"
bench_photos "$count" "$side" "$work/once"
mkdir "$work/twice"
for f in "$work/once"/*; do
  cp "$f" "$work/twice/a_$(basename "$f")"
  cp "$f" "$work/twice/b_$(basename "$f")"
done
export OPENCV_FOR_THREADS_NUM=1

echo "vqfe extract --jobs 1 --kind all, one thread, $count photos of $side px from $photos_from, then each twice; load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-6s %14s %14s %12s %12s\n' round "once cpu s" "twice cpu s" "cpu ms/img" "peak RSS MB"
per_photo=()
for round in $(seq "$rounds"); do
  for set in once twice; do
    /usr/bin/time -f '%U %S %M' -o "$work/$set.time" \
      "$root/build/bin/vqfe" extract --jobs 1 --kind all "$work/$set" >/dev/null 2>"$work/stderr" ||
      { cat "$work/stderr" >&2; exit 1; }
  done
  read -r user1 sys1 rss1 <"$work/once.time"
  read -r user2 sys2 rss2 <"$work/twice.time"
  row=$(awk -v r="$round" -v n="$count" -v a="$user1" -v b="$sys1" -v c="$user2" -v d="$sys2" -v m="$rss2" 'BEGIN {
    printf "%-6s %14.2f %14.2f %12.1f %12.0f", r, a + b, c + d, 1000 * ((c + d) - (a + b)) / n, m / 1024 }')
  echo "$row"
  per_photo+=("$(awk '{ print $4 }' <<<"$row")")
done
echo "median cpu ms/img over the rounds: $(median "${per_photo[@]}")"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
