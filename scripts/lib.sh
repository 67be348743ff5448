# Shared by scripts/test and scripts/demo: installs the Debian packages that are missing,
# and builds a preset.
set -euo pipefail
VQFE_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# vqfe_install_packages [list]: the packages of list (scripts/packages.txt by default),
# one a line, # comments.
vqfe_install_packages() {
  local list="${1:-$VQFE_ROOT/scripts/packages.txt}"
  local missing=()
  local pkg
  while read -r pkg; do
    [[ -z "$pkg" || "$pkg" == \#* ]] && continue
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
  done < "$list"
  if ((${#missing[@]})); then
    echo "installing: ${missing[*]}"
    local sudo=""
    [[ $(id -u) -ne 0 ]] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
  fi
}

vqfe_build() {
  local preset="$1"
  cmake --preset "$preset" -S "$VQFE_ROOT" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)"
}
