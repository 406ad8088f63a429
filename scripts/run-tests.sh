#!/usr/bin/env bash
# Sets up and runs the whole test suite:
#   1. installs the Debian packages (scripts/install-deps.sh --tests),
#   2. builds everything in build/, prepares the real sample data under sample/
#      (scripts/prepare-data.sh: the map rendering tests draw them) and runs
#      every CTest test (unit, rendering on a private Xvfb, the install check),
#   3. builds again with AddressSanitizer + UndefinedBehaviorSanitizer in
#      build-asan/ and runs the non-GL tests there,
#   4. builds with ThreadSanitizer in build-tsan/ and runs the tests that
#      exercise code touched by two threads (label "threads").
# Environment: JOBS (default: number of cores), SKIP_SANITIZERS=1 to stop after 2.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${JOBS:-$(nproc)}

scripts/install-deps.sh --tests

launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache); fi

configure_and_build() { # dir, target, extra cmake args...
  local dir=$1 target=$2; shift 2
  cmake -S "$root" -B "$root/$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
  cmake --build "$root/$dir" -j "$jobs" --target "$target"
}

step() { printf '\n==== %s ====\n' "$*"; }

step "build (RelWithDebInfo)"
configure_and_build build all -DCMAKE_BUILD_TYPE=RelWithDebInfo
step "sample data"
scripts/prepare-data.sh "$root/build" "$root/sample"
step "tests"
(cd build && CXVIEWER_SAMPLE_DIR="$root/sample" ctest -j "$jobs" --output-on-failure --timeout 600)

if [[ "${SKIP_SANITIZERS:-0}" == 1 ]]; then exit 0; fi

step "build with AddressSanitizer + UndefinedBehaviorSanitizer"
configure_and_build build-asan unit_tests -DCMAKE_BUILD_TYPE=Debug -DCXVIEWER_SANITIZE="address;undefined" \
  -DCXVIEWER_BUILD_BENCH=OFF
step "non-GL tests under ASan + UBSan"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest -j "$jobs" -L unit --output-on-failure --timeout 600)

step "build with ThreadSanitizer"
configure_and_build build-tsan thread_tests -DCMAKE_BUILD_TYPE=Debug -DCXVIEWER_SANITIZE=thread \
  -DCXVIEWER_BUILD_BENCH=OFF -DCXVIEWER_BUILD_APPS=OFF
step "multi-threaded tests under TSan"
(cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
  ctest -j "$jobs" -L threads --output-on-failure --timeout 600)

step "all tests passed"
