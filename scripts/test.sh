#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs the host suite and the ARMv7
# suite under qemu-arm, the host suite again as a debug build under AddressSanitizer and
# UndefinedBehaviorSanitizer (TAVIX_SANITIZE_TESTS=0 skips that one), and the concurrency suite
# under ThreadSanitizer (TAVIX_TSAN_TESTS=0 skips it), and, when TAVIX_FUZZ_SECONDS is set, a
# run of every fuzz target for that many seconds each (scripts/fuzz.sh). The fuzz smoke stays
# out of CI until a cold build of the five presets fits CI's time with room to spare.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

# Compiler cache keys relative to the checkout, so a fresh clone reuses earlier builds.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1

jobs=${TAVIX_JOBS:-2}
cmake --preset host-release >/dev/null
cmake --build --preset host-release -j"$jobs"
ctest --preset host-release -j"$jobs"

if [ "${TAVIX_SANITIZE_TESTS:-1}" = 1 ]; then
  cmake --preset host-debug >/dev/null
  cmake --build --preset host-debug -j"$jobs"
  ctest --preset host-debug -j"$jobs"
fi

if [ "${TAVIX_TSAN_TESTS:-1}" = 1 ]; then
  cmake --preset tsan >/dev/null
  cmake --build --preset tsan -j"$jobs"
  ctest --preset tsan
fi

fuzz_seconds=${TAVIX_FUZZ_SECONDS:-0}
if [ "$fuzz_seconds" != 0 ]; then
  bash scripts/fuzz.sh "$fuzz_seconds"
fi

cmake --preset armhf >/dev/null
cmake --build --preset armhf -j"$jobs"
ctest --preset armhf -j"$jobs"
