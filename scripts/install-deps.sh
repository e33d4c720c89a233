#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the ARMv7 suite, the fuzz targets, the
# benchmarks and the tool need. Safe to run again: it only asks apt for what is missing.
set -euo pipefail

want_host=(cmake ninja-build g++ ccache python3 pkg-config libhwy-dev googletest libgtest-dev
           libbenchmark-dev libopencv-dev libyuv-dev libeigen3-dev libstb-dev clang libclang-rt-14-dev)
want_arm=(g++-arm-linux-gnueabihf qemu-user libhwy-dev:armhf libgtest-dev:armhf libc6:armhf
          libstdc++6:armhf)

skip_arm=${TAVIX_SKIP_ARM:-0}
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

missing=()
for p in "${want_host[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "$skip_arm" != 1 ]; then
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $sudo dpkg --add-architecture armhf
    need_update=1
  fi
  for p in "${want_arm[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
fi

if [ ${#missing[@]} -gt 0 ] || [ "${need_update:-0}" = 1 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # A mirror mid-sync can serve a stale index once; a second update usually clears it.
  $sudo apt-get update -qq || { sleep 5; $sudo apt-get update -qq; } || true
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
