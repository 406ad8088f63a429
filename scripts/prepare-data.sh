#!/usr/bin/env bash
# Prepares the real sample data of the demo and the rendering tests:
#   BASE/data/base/image.db              NASA Blue Marble imagery, MBTiles (JPEG tiles)
#   BASE/data/base/dem.db                SRTM elevation, MBTiles (Terrain-RGB PNG tiles)
#   BASE/myselftest/china-simple.earth   the earth file (no layers: the viewer adds both)
# from the Debian package marble-qt-data, fetched with `apt-get download` into a cache
# folder and unpacked there with `dpkg -x` (nothing is installed), converted by the
# cxtiler tool; and the scene objects around Beijing, made by the program:
#   BASE/models/{buildings,terrain,pipes}/*_{fine,middle,crude,crude2}.osgb
#                                        the models, four levels of detail each (cxsample)
#   BASE/data/objects.csv                the objects, standing on the ground of dem.db (cxsample)
#   BASE/data/objects.db                 the object store the viewer reads (cxstore build)
#   BASE/oblique/                        an oblique photography dataset: metadata.xml and
#                                        Data/Tile_*/ pyramids of paged .osgb tiles (cxsample)
#   BASE/icon/Compass.PNG, BASE/icon/plate.PNG, BASE/myselftest/data/mapscale.png
#                                        the pictures of the heads-up display (cxsample)
#   BASE/pointcloud/beijing.las          a point cloud of the business district, LAS 1.4 (cxsample)
#   BASE/pointcloud/beijing/cloud.osgb   its paged octree of point tiles (cxtiler points)
#   BASE/skybox/{posx,negx,posy,negy,posz,negz}.png
#                                        a sky box's cube map: stars, a glow along the horizon (cxsample)
# The tools cxtiler, cxsample and cxstore are built first if needed.
#
#   scripts/prepare-data.sh [BUILD_DIR] [BASE_PATH]
#     BUILD_DIR  CMake build folder for the tools (default: $CXVIEWER_BUILD_DIR or <repo>/build)
#     BASE_PATH  where the data goes           (default: $CXVIEWER_BASE_PATH or <repo>/sample)
# Environment: CXVIEWER_CACHE (default ~/.cache/cxviewer), FORCE=1 to redo everything.
#
# Idempotent: every step is skipped while its outputs are newer than its inputs,
# so a second run only checks and takes about a second.
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-${CXVIEWER_BUILD_DIR:-$repo/build}}
base=${2:-${CXVIEWER_BASE_PATH:-$repo/sample}}
cache=${CXVIEWER_CACHE:-${HOME:-/root}/.cache/cxviewer}
force=${FORCE:-0}

say() { printf 'prepare-data: %s\n' "$*"; }
die() { printf 'prepare-data: error: %s\n' "$*" >&2; exit 1; }

# up_to_date OUTPUT INPUT...: the output exists and is newer than every input.
up_to_date() {
  local out=$1; shift
  [[ "$force" != 1 && -s "$out" ]] || return 1
  local in
  for in in "$@"; do
    [[ "$out" -nt "$in" ]] || return 1
  done
}

# --- 1. the package ----------------------------------------------------------
mkdir -p "$cache"
deb=$(ls -1 "$cache"/marble-qt-data_*.deb 2>/dev/null | tail -n 1 || true)
if [[ -z "$deb" || "$force" == 1 ]]; then
  say "downloading marble-qt-data into $cache"
  download() {
    # As root apt hands the download to its sandbox user, who may not write into
    # the cache folder; the package is only unpacked, so download as ourselves.
    (cd "$cache" && apt-get download -o APT::Sandbox::User="$(id -un)" marble-qt-data)
  }
  if ! download; then
    # A fresh system has no package lists yet.
    say "download failed; updating the package lists and trying again"
    if [[ $(id -u) -eq 0 ]]; then apt-get update -qq; else sudo apt-get update -qq; fi
    download || die "cannot download marble-qt-data"
  fi
  deb=$(ls -1 "$cache"/marble-qt-data_*.deb 2>/dev/null | tail -n 1 || true)
  [[ -n "$deb" ]] || die "apt-get download left no marble-qt-data_*.deb in $cache"
else
  say "package present: $deb"
fi

# --- 2. unpack ---------------------------------------------------------------
unpacked="$cache/marble-qt-data"
maps="$unpacked/usr/share/marble/data/maps/earth"
bluemarble="$maps/bluemarble/bluemarble.jpg"
srtm="$maps/srtm2"
srtm_west="$srtm/0/000000/000000_000000.png"
srtm_east="$srtm/0/000000/000000_000001.png"
stamp="$unpacked/.unpacked"
if up_to_date "$stamp" "$deb" && [[ -f "$bluemarble" && -f "$srtm_west" && -f "$srtm_east" ]]; then
  say "package unpacked: $unpacked"
else
  say "unpacking $(basename "$deb") into $unpacked"
  rm -rf "$unpacked"
  mkdir -p "$unpacked"
  dpkg -x "$deb" "$unpacked"
  for f in "$bluemarble" "$srtm_west" "$srtm_east"; do
    [[ -f "$f" ]] || die "the package has no $f"
  done
  date > "$stamp"
fi

# --- 3. the tools ------------------------------------------------------------
tiler="$build/apps/cxtiler/cxtiler"
sampler="$build/apps/cxsample/cxsample"
store="$build/apps/cxstore/cxstore"
if [[ ! -f "$build/CMakeCache.txt" ]]; then
  say "configuring $build"
  generator=()
  if command -v ninja >/dev/null; then generator=(-G Ninja); fi
  launcher=()
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  fi
  cmake -S "$repo" -B "$build" "${generator[@]}" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DCXVIEWER_BUILD_TESTS=OFF -DCXVIEWER_BUILD_BENCH=OFF >/dev/null
fi
# Up-to-date tools cost the build system a quick check only. A tool that does not
# build stops the run where it is needed, so the imagery and heights still come.
say "building cxtiler, cxsample and cxstore in $build"
if ! cmake --build "$build" --target cxtiler cxsample cxstore -j "${JOBS:-$(nproc)}" >/dev/null; then
  # Build each on its own, so that one broken tool does not keep the others out.
  for tool in "$tiler" "$sampler" "$store"; do
    name=$(basename "$tool")
    if ! cmake --build "$build" --target "$name" -j "${JOBS:-$(nproc)}" >/dev/null 2>&1; then
      if [[ -x "$tool" ]]; then
        say "warning: cannot rebuild $name; using the existing $tool"
      else
        say "warning: cannot build $name (run: cmake --build $build --target $name)"
      fi
    fi
  done
fi
# need_tool PATH: stops the run when the tool is missing.
need_tool() {
  [[ -x "$1" ]] || die "no $(basename "$1") at $1 (run: cmake --build $build --target $(basename "$1"))"
}
need_tool "$tiler"

# --- 4. the data -------------------------------------------------------------
image_db="$base/data/base/image.db"
dem_db="$base/data/base/dem.db"
earth="$base/myselftest/china-simple.earth"
mkdir -p "$base/data/base" "$base/myselftest"

if up_to_date "$image_db" "$bluemarble" "$tiler"; then
  say "up to date: $image_db"
else
  say "making $image_db from $(basename "$bluemarble")"
  "$tiler" image "$bluemarble" "$image_db" --name "Blue Marble" \
    --description "NASA Blue Marble, spherical mercator" --attribution "NASA Blue Marble (marble-qt-data)"
fi

if up_to_date "$dem_db" "$srtm_west" "$srtm_east" "$tiler"; then
  say "up to date: $dem_db"
else
  say "making $dem_db from the SRTM tiles"
  "$tiler" elevation "$srtm_west" "$srtm_east" "$dem_db" --name "SRTM" \
    --description "SRTM elevation, voids filled, Terrain-RGB" --attribution "SRTM (marble-qt-data)"
fi

if up_to_date "$earth" "$tiler"; then
  say "up to date: $earth"
else
  say "writing $earth"
  "$tiler" earth "$earth" --name china-simple
fi

# --- 5. the scene objects ----------------------------------------------------
# The models and the table come from one run of cxsample, which writes the table
# last: the table's date stands for both.
objects_csv="$base/data/objects.csv"
objects_db="$base/data/objects.db"
need_tool "$sampler"
need_tool "$store"
hud_images=("$base/icon/Compass.PNG" "$base/icon/plate.PNG" "$base/myselftest/data/mapscale.png")
cloud_las="$base/pointcloud/beijing.las"
skybox_faces=()
for face in posx negx posy negy posz negz; do skybox_faces+=("$base/skybox/$face.png"); done
all_files() { local f; for f in "$@"; do [[ -f "$f" ]] || return 1; done; }
if up_to_date "$objects_csv" "$sampler" "$dem_db" "$image_db" && [[ -d "$base/models/buildings" && -f "$base/oblique/metadata.xml" ]] \
   && all_files "${hud_images[@]}" "${skybox_faces[@]}" "$cloud_las"; then
  say "up to date: $objects_csv, $base/models, $base/oblique, the HUD pictures, $base/skybox and $cloud_las"
else
  say "making the scene objects, the HUD pictures, the sky box and the point cloud: $base/models, $base/oblique, $base/icon, $base/skybox, $cloud_las and $objects_csv"
  "$sampler" "$base" --dem "$dem_db" --image "$image_db"
fi

if up_to_date "$objects_db" "$objects_csv" "$store"; then
  say "up to date: $objects_db"
else
  say "making $objects_db from $(basename "$objects_csv")"
  "$store" build "$objects_csv" "$objects_db"
fi

# --- 6. the point cloud's tiles ----------------------------------------------
# Children load within 1.5 cube edges of their tile (the tool's default is 3):
# the district is 1.3 km across, and a low view across it then draws the finest
# level near the eye and the first one at the far side, as larger clouds do.
cloud_tiles="$base/pointcloud/beijing"
if up_to_date "$cloud_tiles/cloud.osgb" "$cloud_las" "$tiler" "$0"; then
  say "up to date: $cloud_tiles"
else
  say "tiling $cloud_las into $cloud_tiles"
  "$tiler" points "$cloud_las" "$cloud_tiles" --lod-factor 1.5
fi

say "sample data ready under $base"
