#!/usr/bin/env bash
# The main job. Until the service and the command-line tool exist, this builds
# the host tree and shows the platform libraries at work through their tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake --preset host >/dev/null
cmake --build --preset host -j"$(nproc)" >/dev/null
ctest --preset host -L unit
