#!/usr/bin/env bash
# Installs what a README command needs on a fresh Debian machine, and no
# more; does nothing for what is already there.
#
#   bash tools/setup.sh demo   what tools/demo.sh needs: the host build
#                              (compilers, CMake, the GoogleTest and Google
#                              Benchmark headers the host preset configures
#                              with, libmicrohttpd and libcrypt for the web
#                              page) and chromium with a font for Chinese
#                              names, for the screenshot of the page
#   bash tools/setup.sh [test] what tools/test-all.sh needs (the default):
#                              the demo's packages and clang for the fuzzers,
#                              clang-format and clang-tidy, the 32-bit ARM cross toolchain
#                              with qemu-user for the target tests, python3
#                              for the end-to-end tests, openssl and GnuTLS's
#                              headers for the HTTPS test, chromium's
#                              driver and selenium for the browser test, the
#                              target's libmicrohttpd and libcrypt for the
#                              armhf pbweb, and systemd-analyze, setpriv and
#                              curl for the check of the service definitions
set -euo pipefail
cd "$(dirname "$0")/.."

what=${1:-test}
case $what in
    demo | test) ;;
    *) echo "usage: bash tools/setup.sh [demo|test]" >&2; exit 2 ;;
esac

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO=sudo
need=()
have() { command -v "$1" >/dev/null 2>&1; }
pkg_installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
# A mirror in the middle of a sync fails some lists; the install after it
# says whether what we need was among them.
update_lists() { $SUDO apt-get update -qq || echo "setup: apt-get update reported errors; installing from the lists it has"; }

have cmake || need+=(cmake)
have make || need+=(make)
have g++ || need+=(g++)
have pkg-config || need+=(pkgconf)
pkgs=(libgtest-dev libgmock-dev libbenchmark-dev libmicrohttpd-dev libcrypt-dev chromium fonts-wqy-microhei)
if [ "$what" = test ]; then
    have clang++ || need+=(clang)
    have clang-format || need+=(clang-format)
    have clang-tidy || need+=(clang-tidy)
    have arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
    have qemu-arm || need+=(qemu-user)
    [ -x /usr/bin/python3 ] || need+=(python3)
    have systemd-analyze || need+=(systemd)
    have setpriv || need+=(util-linux)
    have curl || need+=(curl)
    have openssl || need+=(openssl)
    pkgs+=(googletest libgnutls28-dev chromium-driver python3-selenium)
fi
for p in "${pkgs[@]}"; do
    pkg_installed "$p" || need+=("$p")
done

if [ ${#need[@]} -gt 0 ]; then
    echo "setup: installing ${need[*]}"
    update_lists
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi
[ "$what" = test ] || exit 0

# The target's libmicrohttpd and libcrypt for the armhf build of pbweb:
# Debian's multiarch packages, or when those cannot be installed (the armhf
# lists of a mirror lag behind the host's, and the C library's packages
# then do not match), the same packages unpacked into build/armhf-debs,
# where the armhf preset looks (MUTILS_PB_TARGET_ROOT).
debs=build/armhf-debs
armhf_dev=(libmicrohttpd-dev:armhf libcrypt-dev:armhf)
armhf_debs=(libmicrohttpd-dev:armhf libmicrohttpd12:armhf libcrypt-dev:armhf libcrypt1:armhf)
unpacked() {
    local lib=$debs/usr/lib/arm-linux-gnueabihf
    [ -e "$lib/libmicrohttpd.so" ] && [ -e "$debs/usr/include/microhttpd.h" ] &&
        [ -e "$lib/libcrypt.so" ] && [ -e "$debs/usr/include/crypt.h" ]
}
all_installed() { for p in "${armhf_dev[@]}"; do pkg_installed "$p" || return 1; done; }
all_installed && exit 0
unpacked && exit 0
dpkg --print-foreign-architectures | grep -qx armhf || $SUDO dpkg --add-architecture armhf
install_armhf() { DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${armhf_dev[@]}" >/dev/null 2>&1; }
if install_armhf || { update_lists >/dev/null 2>&1; install_armhf; }; then
    exit 0
fi
echo "setup: ${armhf_dev[*]} cannot be installed here; unpacking their packages into $debs"
dl=$(mktemp -d)
trap 'rm -rf "$dl"' EXIT
# apt-get download, run as root, writes as the user _apt.
[ -z "$SUDO" ] && chown _apt "$dl" 2>/dev/null || true
if (cd "$dl" && apt-get download -qq "${armhf_debs[@]}" >/dev/null); then
    rm -rf "$debs"
    mkdir -p "$debs"
    for d in "$dl"/*.deb; do dpkg -x "$d" "$debs"; done
    # A link to an absolute path (libcrypt.so -> /lib/...) would leave the
    # folder: it is made to point at the same path inside it.
    find "$debs" -type l -lname '/*' | while read -r link; do
        ln -sfn "$(realpath -ms --relative-to="$(dirname "$link")" "$debs$(readlink "$link")")" "$link"
    done
fi
unpacked || echo "setup: libmicrohttpd or libcrypt for armhf could not be fetched; the armhf build leaves pbweb out"
