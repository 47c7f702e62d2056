#!/usr/bin/env bash
# Builds and runs every test: the host debug build (unit, end-to-end and
# benchmark smoke tests), the address+undefined and thread sanitizer builds,
# the 32-bit ARM build with its unit tests under qemu-arm, the ARM target
# build, and a short run of every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

jobs=$(nproc)
stage() { echo; echo "=== $*"; }
run_preset() {
  local p=$1
  stage "$p: configure, build, test"
  cmake --preset "$p" >/dev/null
  cmake --build --preset "$p" -j"$jobs" >/dev/null
  ctest --preset "$p" --output-on-failure
}

run_preset host
run_preset asan
run_preset tsan
run_preset armhf-test
stage "armhf: target build (/data)"
cmake --preset armhf >/dev/null
cmake --build --preset armhf -j"$jobs" >/dev/null
lib=build/armhf/app/mutils/pb/libmutils_pb.so
readelf -h "$lib" | grep -q 'Machine: *ARM' || { echo "armhf: $lib is not an ARM library"; exit 1; }
grep -qa '/data/pb_sim_file' "$lib" || { echo "armhf: $lib does not use /data"; exit 1; }
echo "armhf: $lib is a 32-bit ARM library using /data"
web=build/armhf/tools/pbweb/pbweb
if [ -x "$web" ]; then
    readelf -h "$web" | grep -q 'Machine: *ARM' || { echo "armhf: $web is not an ARM program"; exit 1; }
    arm-linux-gnueabihf-strip -o build/armhf/pbweb.stripped "$web"
    echo "armhf: pbweb is $(stat -c %s build/armhf/pbweb.stripped) bytes stripped"
else
    echo "armhf: pbweb left out (no libmicrohttpd-dev:armhf)"
fi
run_preset fuzz
stage "all stages passed"
