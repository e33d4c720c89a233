#!/usr/bin/env bash
# The main job: installs what is missing, builds the library and the tavix tool, lists the
# implemented operations and times every one on the reference and SIMD tiers at 1080p.
# Extra arguments go to `tavix bench` (a name pattern).
set -euo pipefail
cd "$(dirname "$0")/.."
TAVIX_SKIP_ARM=1 bash scripts/install-deps.sh
cmake --preset host-release >/dev/null
cmake --build --preset host-release -j"${TAVIX_JOBS:-2}" --target tavix
build/host-release/apps/tavix list
build/host-release/apps/tavix bench "$@"
