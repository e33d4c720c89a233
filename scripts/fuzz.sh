#!/usr/bin/env bash
# Fuzzes the host DSP's message handling (dsp/fuzz/dsp_message_fuzz.cc) with libFuzzer for the
# given number of seconds, 60 by default: installs clang and its fuzzer runtime if missing,
# configures and builds the `fuzz` preset, and runs the target on a working corpus that starts
# from dsp/fuzz/corpus. Inputs that crash or hang land in <build>/findings. Not part of
# scripts/test.sh.
#   bash scripts/fuzz.sh [seconds]       TAVIX_FUZZ_BUILD_DIR: build directory (build/fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=${TAVIX_FUZZ_BUILD_DIR:-build/fuzz}

TAVIX_SKIP_ARM=1 bash scripts/install-deps.sh
missing=()
for p in clang libclang-rt-14-dev; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq || { sleep 5; $sudo apt-get update -qq; } || true
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" -j"${TAVIX_JOBS:-2}" --target dsp_message_fuzz
mkdir -p "$build/corpus" "$build/findings"
"$build/dsp/fuzz/dsp_message_fuzz" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
  -artifact_prefix="$build/findings/" "$build/corpus" dsp/fuzz/corpus
