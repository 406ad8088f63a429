#!/usr/bin/env bash
# Installs the Debian 12 packages the library, its tools and its tests need.
# Idempotent: when everything is present it only checks, which takes a second.
#   scripts/install-deps.sh [--tests]
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libopenscenegraph-dev openscenegraph
  libproj-dev proj-data
  libsqlite3-dev
  libgdal-dev
  libtinyxml-dev
  qtbase5-dev
  libx11-dev libgl-dev
  xvfb xauth libgl1-mesa-dri
  fonts-wqy-zenhei
)
if [[ "${1:-}" == "--tests" ]]; then
  packages+=(libgtest-dev libgmock-dev libbenchmark-dev)
fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} == 0)); then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: run as root (or install sudo)" >&2; exit 1; }
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
