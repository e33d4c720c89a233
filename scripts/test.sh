#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs the host suite and the ARMv7
# suite under qemu-arm, the host suite again as a debug build under AddressSanitizer and
# UndefinedBehaviorSanitizer (TAVIX_SANITIZE_TESTS=0 skips that one), and the concurrency suite
# under ThreadSanitizer (TAVIX_TSAN_TESTS=0 skips it), and a short run of every fuzz target
# (scripts/fuzz.sh; TAVIX_FUZZ_SECONDS each, 3 by default, 0 skips it).
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

fuzz_seconds=${TAVIX_FUZZ_SECONDS:-3}
if [ "$fuzz_seconds" != 0 ]; then
  bash scripts/fuzz.sh "$fuzz_seconds"
fi

cmake --preset armhf >/dev/null
cmake --build --preset armhf -j"$jobs"
ctest --preset armhf -j"$jobs"
