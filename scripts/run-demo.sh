#!/usr/bin/env bash
# Sets up and runs the main job: installs the Debian packages, builds the
# library and its tools, prepares the real sample data (NASA Blue Marble
# imagery and SRTM elevation) under sample/, and runs the demo host on it.
# Without a display it runs under a private Xvfb and writes screenshots to
# out/ instead of showing a window.
#   scripts/run-demo.sh [extra cxdemo arguments]
# Environment: JOBS (default: number of cores), FRAMES (headless frame count).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${JOBS:-$(nproc)}

scripts/install-deps.sh

launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache); fi
cmake -S "$root" -B "$root/build-demo" -G Ninja -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" \
  -DCXVIEWER_BUILD_TESTS=OFF -DCXVIEWER_BUILD_BENCH=OFF >/dev/null
cmake --build "$root/build-demo" -j "$jobs"

scripts/prepare-data.sh "$root/build-demo" "$root/sample"

demo="$root/build-demo/apps/cxdemo/cxdemo"
if [[ -n "${DISPLAY:-}" ]]; then
  exec "$demo" --base-path "$root/sample" "$@"
fi

mkdir -p "$root/out"
echo "run-demo: no DISPLAY, drawing headless on Xvfb; screenshots go to out/"
xvfb-run -a -s "-screen 0 1920x1080x24" \
  "$demo" --base-path "$root/sample" --frames "${FRAMES:-600}" --snapshot "$root/out/cxdemo.png" "$@"
echo "run-demo: wrote $root/out/cxdemo.png"
