#!/usr/bin/env bash
# Measures the analyses on labelled public photos: fetches the Debian packages that ship the
# photos of scripts/quality-labels.tsv (cached outside the source tree), runs `vqfe extract`
# over them and prints one table of figures per analysis (docs/quality.md).
#   scripts/quality               the table, then one line per photo
#   scripts/quality --markdown    the same in Markdown
# VQFE_QUALITY_CACHE sets the cache folder (default ~/.cache/vqfe/quality). Results, the
# table and the annotated photos land in build/quality/.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
export PYTHONDONTWRITEBYTECODE=1
cd "$VQFE_ROOT"



labels="$VQFE_ROOT/scripts/quality-labels.tsv"
cache="${VQFE_QUALITY_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vqfe/quality}"
out="$VQFE_ROOT/build/quality"
mkdir -p "$cache/debs" "$cache/unpacked"
rm -rf "$out"
mkdir -p "$out"

# The package's .deb, downloaded once; the package lists are refreshed when apt cannot find it.
fetch_package() {
  local pkg="$1"
  compgen -G "$cache/debs/${pkg}_*.deb" >/dev/null && return 0
  if ! (cd "$cache/debs" && apt-get download -qq "$pkg" 2>/dev/null); then
    local sudo=""
    [[ $(id -u) -ne 0 ]] && sudo="sudo"
    $sudo apt-get update -qq
    (cd "$cache/debs" && apt-get download -qq "$pkg")
  fi
}

# Only the labelled files are taken out of each package, into unpacked/<package>/.
rm -rf "$cache/unpacked"
sources=()
for pkg in $(grep -v '^#' "$labels" | tail -n +2 | cut -f2 | sort -u); do
  if ! fetch_package "$pkg"; then
    echo "quality: cannot download $pkg; its photos are left out" >&2
    continue
  fi
  deb=$(ls "$cache/debs/${pkg}"_*.deb | tail -n 1)
  mkdir -p "$cache/unpacked/$pkg"
  grep -v '^#' "$labels" | tail -n +2 | awk -F'\t' -v p="$pkg" '$2 == p { print "./" $3 }' >"$cache/unpacked/$pkg.files"
  dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$cache/unpacked/$pkg" -T "$cache/unpacked/$pkg.files" ||
    echo "quality: not every labelled file is in $pkg" >&2
  sources+=("$pkg $(dpkg-deb -f "$deb" Version)")
done

rm -rf "$cache/photos"
python3 "$VQFE_ROOT/scripts/quality_photos.py" "$labels" "$cache/unpacked" "$cache/photos"

kinds=(face face-verify face-cluster face-attribute skeleton scene pet-face classification sensitive)
kind_args=()
for kind in "${kinds[@]}"; do kind_args+=(--kind "$kind"); done
echo "running vqfe over $(ls "$cache/photos" | wc -l) photos (${kinds[*]})" >&2
# Errors on single photos are in the results and counted by the table; the run goes on.
"$VQFE_ROOT/build/bin/vqfe" extract "${kind_args[@]}" --jobs 2 --draw "$out/pictures" \
  "$cache/photos" >"$out/results.jsonl" 2>"$out/vqfe.log" || true

{
  echo "photos from: $(IFS=,; echo "${sources[*]}" | sed 's/,/, /g')"
  python3 "$VQFE_ROOT/scripts/quality_table.py" --photos "$@" "$labels" "$out/results.jsonl"
} | tee "$out/table.txt"
echo >&2
echo "results: $out/results.jsonl; annotated photos: $out/pictures/" >&2
