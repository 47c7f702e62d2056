#!/usr/bin/env bash
# Installs what the build and the tests need on a fresh Debian machine:
# compilers, CMake, GoogleTest/GoogleMock, Google Benchmark, clang for the
# fuzzers, and the 32-bit ARM cross toolchain with qemu-user for the target
# tests. Does nothing for what is already there.
set -euo pipefail

need=()
have() { command -v "$1" >/dev/null 2>&1; }
pkg_installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

have cmake || need+=(cmake)
have g++ || need+=(g++)
have clang++ || need+=(clang)
have arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
have qemu-arm || need+=(qemu-user)
have pkg-config || need+=(pkgconf)
for p in libgtest-dev libgmock-dev googletest libbenchmark-dev; do
  pkg_installed "$p" || need+=("$p")
done

if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi
