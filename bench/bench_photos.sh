# Sourced by the bench scripts that run vqfe over photos: bench_photos COUNT SIDE DEST makes
# COUNT photos of SIDE px in DEST (JPEG) from scripts/quality's cache, when it holds enough,
# or else from testdata/, and sets photos_from to the folder they came from.
# Needs a default build (bench_make_photos).
bench_photos() {
  local root
  root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
  photos_from="${VQFE_QUALITY_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vqfe/quality}/photos"
  if [[ ! -d $photos_from ]] || (($(ls "$photos_from" | wc -l) < $1)); then photos_from="$root/testdata"; fi
  "$root/build/bin/bench_make_photos" "$photos_from" "$3" "$1" "$2" 2>/dev/null
}
