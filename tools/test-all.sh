#!/usr/bin/env bash
# Checks that every tracked C and C++ file is formatted as .clang-format
# says, then builds and runs every test: the host debug build (unit,
# end-to-end and benchmark smoke tests) with the check of the service
# definitions on its installed programs, the address+undefined and thread
# sanitizer builds, the 32-bit ARM build with its unit tests under qemu-arm,
# the ARM target build, the module alone against an SDK made of it, a
# short run of every fuzz target, and the naming rules with clang-tidy.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh test

jobs=$(nproc)
stage() { echo; echo "=== $*"; }

# Formatting first: a file that clang-format would change fails the run
# before anything is built.
stage "format: clang-format over the tracked C and C++ files"
mapfile -t sources < <(git ls-files '*.c' '*.cpp' '*.h')
[ ${#sources[@]} -gt 0 ] || { echo "format: no tracked C or C++ files (not a git checkout?)"; exit 1; }
unformatted=()
for f in "${sources[@]}"; do
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || unformatted+=("$f")
done
if [ ${#unformatted[@]} -gt 0 ]; then
  echo "format: ${#unformatted[@]} files differ from .clang-format; run clang-format -i on them:"
  printf '  %s\n' "${unformatted[@]}"
  exit 1
fi
echo "format: ${#sources[@]} files as .clang-format has them"

run_preset() {
  local p=$1
  stage "$p: configure, build, test"
  cmake --preset "$p" >/dev/null
  cmake --build --preset "$p" -j"$jobs" >/dev/null
  ctest --preset "$p" --output-on-failure -j"$jobs"
}

run_preset host
stage "services: the systemd units and procd init scripts, pb_host and pbweb run as their account"
bash tools/services/check_services.sh build/host build/host/services
run_preset asan
run_preset tsan
run_preset armhf-test
stage "armhf: target build (/data)"
cmake --preset armhf >/dev/null
cmake --build --preset armhf -j"$jobs" >/dev/null
lib=build/armhf/app/mutils/pb/libmutils_pb.so
readelf -h "$lib" | grep -q 'Machine: *ARM' || { echo "armhf: $lib is not an ARM library"; exit 1; }
# The router's folder is fixed: the target build reads no PB_DATA_DIR.
strings -a "$lib" | grep -x '/data' >/dev/null || { echo "armhf: $lib does not use /data"; exit 1; }
! grep -qa 'PB_DATA_DIR' "$lib" || { echo "armhf: $lib reads PB_DATA_DIR from the environment"; exit 1; }
echo "armhf: $lib is a 32-bit ARM library using /data"
# What the router must offer to load it: the device's platform libraries and
# the C library, no C++ runtime (the host build's device_imports test and the
# SDK stage below check the same).
cmake -DLIB="$lib" -DNM=arm-linux-gnueabihf-nm -DREADELF=arm-linux-gnueabihf-readelf \
  -P tests/foundation/check_imports.cmake
web=build/armhf/tools/ui/pbweb/pbweb
if grep -q '^MHD_LIBRARY:FILEPATH=.*microhttpd' build/armhf/CMakeCache.txt; then
    [ -x "$web" ] || { echo "armhf: libmicrohttpd was found, but $web was not built"; exit 1; }
    readelf -h "$web" | grep -q 'Machine: *ARM' || { echo "armhf: $web is not an ARM program"; exit 1; }
    arm-linux-gnueabihf-strip -o build/armhf/pbweb.stripped "$web"
    echo "armhf: pbweb is $(stat -c %s build/armhf/pbweb.stripped) bytes stripped"
else
    echo "armhf: pbweb left out (no libmicrohttpd for armhf: see tools/setup.sh)"
fi

# An SDK-shaped folder made of the armhf stand-ins and the device's headers
# (the "host" component); the module alone is built against it, must import
# only the device's functions, and links into a program through its
# installed "module" component and mutils_pb.pc.
stage "armhf-sdk: the module alone against a device SDK"
sdk=build/armhf-sdk-root
rm -rf "$sdk"
cmake --install build/armhf --component host --prefix "$sdk/usr" >/dev/null
cmake --preset armhf-sdk >/dev/null
cmake --build --preset armhf-sdk -j"$jobs" >/dev/null
cmake -DLIB=build/armhf-sdk/app/mutils/pb/libmutils_pb.so -DNM=arm-linux-gnueabihf-nm \
  -DREADELF=arm-linux-gnueabihf-readelf -P tests/foundation/check_imports.cmake
cmake --install build/armhf-sdk --component module --prefix "$sdk/usr" >/dev/null
printf '#include "mm_pb.h"\nint main(void) { return mm_pb_init() == 0 ? mm_pb_fin() : 1; }\n' >"$sdk/router.c"
# shellcheck disable=SC2046 # pkg-config prints separate flags
arm-linux-gnueabihf-gcc -std=c99 -o "$sdk/router" "$sdk/router.c" -Wl,-rpath-link,"$sdk/usr/lib" \
  $(PKG_CONFIG_PATH="$sdk/usr/lib/pkgconfig" pkg-config --cflags --libs mutils_pb)
echo "armhf-sdk: module links against the SDK; stripped size $(arm-linux-gnueabihf-strip -o "$sdk/stripped.so" \
  build/armhf-sdk/app/mutils/pb/libmutils_pb.so && stat -c %s "$sdk/stripped.so") bytes"
run_preset fuzz
stage "names: clang-tidy's naming check against CONVENTIONS.md (host compile database)"
bash tools/check-names.sh build/host
stage "all stages passed"
