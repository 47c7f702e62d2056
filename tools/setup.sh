#!/usr/bin/env bash
# Installs what the build and the tests need on a fresh Debian machine:
# compilers, CMake, GoogleTest/GoogleMock, Google Benchmark, clang for the
# fuzzers, clang-format for the formatting check, the 32-bit ARM cross
# toolchain with qemu-user for the target tests, libmicrohttpd for the web
# page (also the armhf one, through Debian's multiarch), and chromium with
# its driver and selenium for the browser tests, with a font for Chinese
# names in the screenshots. Does nothing for what is already there.
set -euo pipefail

need=()
have() { command -v "$1" >/dev/null 2>&1; }
pkg_installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

have cmake || need+=(cmake)
have g++ || need+=(g++)
have clang++ || need+=(clang)
have clang-format || need+=(clang-format)
have arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
have qemu-arm || need+=(qemu-user)
have pkg-config || need+=(pkgconf)
for p in libgtest-dev libgmock-dev googletest libbenchmark-dev libmicrohttpd-dev \
  chromium chromium-driver python3-selenium fonts-wqy-microhei; do
  pkg_installed "$p" || need+=("$p")
done

if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  # A mirror in the middle of a sync fails some lists; the install below
  # says whether what we need was among them.
  $SUDO apt-get update -qq || echo "setup: apt-get update reported errors; installing from the lists it has"
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi

# The target's libmicrohttpd for the armhf build of pbweb. Without it (no
# armhf packages on the mirror, or a version that does not match the host's
# yet) the armhf build leaves pbweb out; nothing else depends on it.
if ! pkg_installed libmicrohttpd-dev:armhf; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $SUDO dpkg --add-architecture armhf
  fi
  install_armhf() { DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq libmicrohttpd-dev:armhf >/dev/null 2>&1; }
  install_armhf || { $SUDO apt-get update -qq >/dev/null 2>&1 || true; install_armhf; } ||
    echo "setup: libmicrohttpd-dev:armhf could not be installed; the armhf build leaves pbweb out"
fi
