#!/usr/bin/env bash
# Differential fuzzing with libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer:
# one target per registry family (fuzz/, generated from ops/) and the host DSP's message handling
# (dsp/fuzz). Builds the `fuzz` preset and runs each target for the given number of seconds
# (60 by default) on a working corpus that starts from the family's seeds in fuzz/corpus.
# Inputs that crash or leak land in <build>/findings and fail the script; inputs slower than
# TAVIX_FUZZ_TIMEOUT seconds (10) are kept there too and counted as slow.
#   bash scripts/fuzz.sh [seconds] [target...]   targets: family names (arith, color, ...) or
#                                                dsp_message; all of them by default
#   TAVIX_FUZZ_BUILD_DIR: build directory (build/fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
build=${TAVIX_FUZZ_BUILD_DIR:-build/fuzz}

TAVIX_SKIP_ARM=${TAVIX_SKIP_ARM:-1} bash scripts/install-deps.sh

export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
cmake --preset fuzz -B "$build" >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in ops/*.toml; do
    family=$(basename "$f" .toml)
    # Families whose entries hold records (pyramids) have no generic call, hence no seeds.
    case "$family" in modes|frame|remote) ;; *) [ -d "fuzz/corpus/$family" ] && targets+=("$family") ;; esac
  done
  targets+=(dsp_message)
fi
build_targets=()
for t in "${targets[@]}"; do
  if [ "$t" = dsp_message ]; then build_targets+=(dsp_message_fuzz); else build_targets+=("fuzz_$t"); fi
done
cmake --build "$build" -j"${TAVIX_JOBS:-2}" --target "${build_targets[@]}"

mkdir -p "$build/findings"
status=0
printf '%-14s %10s %6s  %s\n' target runs slow result
for t in "${targets[@]}"; do
  if [ "$t" = dsp_message ]; then
    exe="$build/dsp/fuzz/dsp_message_fuzz" seeds=dsp/fuzz/corpus
  else
    exe="$build/fuzz/fuzz_$t" seeds="fuzz/corpus/$t"
  fi
  mkdir -p "$build/corpus/$t"
  log="$build/findings/$t.log"
  rm -f "$build/findings/$t-"*
  # Fork mode: an input slower than the timeout (a hostile count that asks for hours of honest
  # work) is set aside and counted, and fuzzing goes on; a crash, a sanitizer report, a leak or a
  # harness finding stops the target and fails the run.
  "$exe" -fork=1 -timeout="${TAVIX_FUZZ_TIMEOUT:-10}" -max_total_time="$seconds" -rss_limit_mb=4096 \
    -artifact_prefix="$build/findings/$t-" "$build/corpus/$t" "$seeds" >"$log" 2>&1 || true
  runs=$(grep -o '^#[0-9]*' "$log" | tail -1 | tr -d '#' || true)
  slow=$(find "$build/findings" -name "$t-timeout-*" | wc -l)
  if [ -n "$(find "$build/findings" -name "$t-crash-*" -o -name "$t-leak-*" -o -name "$t-oom-*")" ]; then
    result="FINDING (see $log)"
    status=1
  else
    result=ok
  fi
  printf '%-14s %10s %6s  %s\n' "$t" "${runs:-0}" "$slow" "$result"
done
exit $status
