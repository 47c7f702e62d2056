#!/usr/bin/env bash
# The phonebook at work, end to end on this machine: the modem simulator
# plays a SIM card, pb_host runs the phonebook service, and the command-line
# tool pbcli lists, adds, edits, deletes, imports and exports entries, finds
# a caller and merges duplicates; then
# the web page pbweb shows the result, caught in a headless screenshot.
#
#   bash tools/demo.sh           from a fresh checkout: installs what the
#                                build needs, builds the host tree, runs
#   bash tools/demo.sh --web     the same, then leaves simulator, service
#                                and page running until Ctrl-C
#                                (PB_WEB_LISTEN=ADDR:PORT, default 127.0.0.1:8080)
#   PB_DEMO_BUILD_DIR=DIR bash tools/demo.sh
#                                uses the binaries already built in DIR
#                                (what the test suite does)
#   PB_DATA_DIR=DIR bash tools/demo.sh
#                                keeps the phonebook files in DIR instead of
#                                the build's data folder, and what it leaves
#                                behind in DIR/demo: demos with different
#                                folders run side by side
#
# Everything it starts is stopped on exit, also on failure or Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
keep_web=0
case "${1:-}" in
    --web) keep_web=1 ;;
    "") ;;
    *) echo "usage: bash tools/demo.sh [--web]" >&2; exit 2 ;;
esac

if [ -n "${PB_DEMO_BUILD_DIR:-}" ]; then
    build=$(cd "$PB_DEMO_BUILD_DIR" && pwd)
else
    bash tools/setup.sh demo
    echo "== building the host tree (build/host)"
    cmake --preset host >/dev/null
    cmake --build --preset host -j"$(nproc)" --target pbcli pb_host pbm_simd pbweb >/dev/null
    build=$src/build/host
fi

pbcli_bin=$build/tools/ui/pbcli/pbcli
host_bin=$build/tools/host/pb_host/pb_host
sim_bin=$build/tools/host/pbm_sim/pbm_simd
web_bin=$build/tools/ui/pbweb/pbweb
for b in "$pbcli_bin" "$host_bin" "$sim_bin" "$web_bin"; do
    [ -x "$b" ] || { echo "demo: $b is missing; build it first" >&2; exit 1; }
done
if [ -n "${PB_DATA_DIR:-}" ]; then
    # Only a host build reads the folder from the environment.
    grep -q '^MUTILS_PB_DATA_DIR_FROM_ENV:BOOL=ON$' "$build/CMakeCache.txt" ||
        { echo "demo: the programs of $build ignore PB_DATA_DIR (built with MUTILS_PB_DATA_DIR_FROM_ENV=OFF)" >&2; exit 1; }
    data_dir=$(mkdir -p "$(dirname "$PB_DATA_DIR")" && cd "$(dirname "$PB_DATA_DIR")" && pwd)/$(basename "$PB_DATA_DIR")
    out=$data_dir/demo
else
    data_dir=$(sed -n 's/^MUTILS_PB_DATA_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
    out=$build/demo
fi
export PB_DATA_DIR=$data_dir
# A data folder made here is flushed into its parent, as the module does
# with one it makes, so that it survives a power cut.
if [ ! -d "$data_dir" ]; then
    mkdir "$data_dir"
    sync "$(dirname "$data_dir")"
fi
mkdir -p "$out"

# Sockets live in a private folder (socket paths are short); logs, the card
# and the exported files in $out, where they stay for a look afterwards.
run_dir=$(mktemp -d /tmp/pbdemo.XXXXXX)
# The simulator listens on qmi_pbm in ZP_IPC_DIR, where the service looks.
unset ZP_QMI_SOCKET
export ZP_IPC_DIR=$run_dir/ipc ZP_NV_DIR=$run_dir/nv
mkdir -p "$ZP_IPC_DIR" "$ZP_NV_DIR"
rm -f "$out"/*.log

sim_pid="" host_pid="" web_pid=""
# Stops the page, the service, then the simulator: SIGTERM, five seconds to
# end, then SIGKILL. Fails when one did not end cleanly with status 0.
stop() {
    local pid rc clean=0
    for pid in $web_pid $host_pid $sim_pid; do
        kill -TERM "$pid" 2>/dev/null || true
        for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
        if kill -KILL "$pid" 2>/dev/null; then
            echo "demo: process $pid did not stop on SIGTERM" >&2
            clean=1
        fi
        rc=0
        wait "$pid" 2>/dev/null || rc=$?
        if [ $rc -ne 0 ]; then
            echo "demo: process $pid ended with status $rc" >&2
            clean=1
        fi
    done
    web_pid="" host_pid="" sim_pid=""
    return $clean
}
cleanup() {
    local rc=$?
    stop || true
    rm -rf "$run_dir"
    [ $rc -eq 0 ] || echo "demo: failed (exit $rc); service log: $out/pb_host.log" >&2
    exit $rc
}
trap cleanup EXIT
# Ctrl-C while the page is being served (--web) is the normal end.
serving=0
trap '[ $serving -eq 1 ] && exit 0; exit 130' INT TERM

step() { printf '\n== %s\n' "$*"; }
# Shows a command line as one would type it.
show_cmd() {
    local a line='$ pbcli'
    for a in "$@"; do
        case $a in *[\ \'\"\$]* | '') line+=" \"$a\"" ;; *) line+=" $a" ;; esac
    done
    printf '%s\n' "$line"
}
pbcli() {
    show_cmd "$@"
    "$pbcli_bin" "$@"
}
# A command that is meant to fail: shows its message and exit status.
pbcli_fails() {
    local rc=0
    show_cmd "$@"
    "$pbcli_bin" "$@" || rc=$?
    [ $rc -ne 0 ] || { echo "demo: expected a failure" >&2; exit 1; }
    echo "(exit status $rc)"
}

step "Start the modem simulator with the sample SIM card"
cp tools/demo/sim_card.txt "$out/sim_card.txt"
ZP_LOG_FILE=$out/pbm_simd.log "$sim_bin" --card "$out/sim_card.txt" &
sim_pid=$!
grep -v '^#' "$out/sim_card.txt"

step "Start the phonebook service (pb_host), device phonebook emptied first"
rm -f "$data_dir/pb_device_file" "$data_dir/pb_device_file_tmp"
ZP_LOG_FILE=$out/pb_host.log ZP_LOG_LEVEL=1 "$host_bin" &
host_pid=$!
# Ready when a request gets an answer (exit status 3: nobody answered yet).
for i in $(seq 100); do
    rc=0
    "$pbcli_bin" --wait 0 list sim >/dev/null 2>&1 || rc=$?
    [ $rc -ne 3 ] && break
    kill -0 "$host_pid" 2>/dev/null || { echo "demo: pb_host ended" >&2; exit 1; }
    [ "$i" -lt 100 ] || { echo "demo: pb_host did not answer" >&2; exit 1; }
    sleep 0.1
done
echo "pb_host is up (pid $host_pid)"

step "The SIM phonebook as read from the card (pbcli waits while the card is being read)"
pbcli list sim

step "Add and edit entries on the SIM"
pbcli add sim --name "Søren Holm" --number +4520123456
pbcli edit sim 4 --number +74951234599
pbcli --json show sim 4
pbcli delete sim 6
pbcli_fails add sim --name "A name far too long for this card" --number 123
pbcli list sim
echo "The card as the simulator keeps it now:"
grep -v '^#' "$out/sim_card.txt" | sed 's/^/    /'

step "Add and edit entries in the device phonebook"
pbcli add device --name "José Núñez" --number +34911234567 --email jose@example.es
pbcli edit device 1 --email jose.nunez@example.es

step "Import the sample CSV into the device phonebook"
sed 's/^/    /' tools/demo/contacts.csv
pbcli import tools/demo/contacts.csv
pbcli list device

step "Import a phone's vCard file: one entry per number, and what became of each contact"
sed 's/^/    /' tools/demo/contacts.vcf
pbcli import --verbose tools/demo/contacts.vcf

step "Copy between the phonebooks: the SIM to the device, device entries to the SIM"
pbcli copy sim device 1 2
pbcli copy device sim 1 8
pbcli copy --cut device sim 1

step "Export a selection (entries 2, 4 and 5), all of the SIM phonebook (CSV unless told), the device as vCard, and a backup in the router's own lines"
pbcli export device "$out/device_selection.csv" 2 4 5
sed 's/^/    /' "$out/device_selection.csv"
pbcli export sim "$out/sim_all.csv"
pbcli export device "$out/device.vcf" 1 8 --format vcard
sed 's/^/    /' "$out/device.vcf"
pbcli export device "$out/device-backup.txt" --format module

step "Delete several entries at once, and what a script sees"
pbcli delete device 3 6
pbcli --json list device
pbcli_fails show device 42

step "Who is calling: a number as people write it finds its entry in either phonebook (the device's first)"
pbcli who --country DE "030 123 4567"
pbcli who "0049 (0)30 123456"

step "The same people in both phonebooks, and a merge that keeps one entry of each"
pbcli duplicates --country DE
pbcli merge --country DE --yes

step "The web page (pbweb) on the same phonebooks"
listen=127.0.0.1:0
[ $keep_web -eq 0 ] || listen=${PB_WEB_LISTEN:-127.0.0.1:8080}
"$web_bin" --listen "$listen" >"$run_dir/pbweb.out" 2>"$out/pbweb.log" &
web_pid=$!
url=""
for _ in $(seq 100); do
    url=$(sed -n 's/^pbweb: listening on //p' "$run_dir/pbweb.out")
    [ -n "$url" ] && break
    kill -0 "$web_pid" 2>/dev/null || { echo "demo: pbweb ended: $(cat "$out/pbweb.log")" >&2; exit 1; }
    sleep 0.1
done
[ -n "$url" ] || { echo "demo: pbweb did not start" >&2; exit 1; }
echo "pbweb is up at $url"
shot=$out/pbweb.png
rm -f "$shot"
chromium_bin=$(command -v chromium || true)
if [ -n "$chromium_bin" ]; then
    # The page reads its lists after loading; give its scripts time to.
    timeout 120 "$chromium_bin" --headless=new --no-sandbox --disable-gpu --hide-scrollbars \
        --window-size=1280,800 --virtual-time-budget=5000 --screenshot="$shot" "$url" >/dev/null 2>&1 || true
fi
if [ -s "$shot" ]; then
    echo "screenshot of the page: $shot"
else
    echo "no screenshot: chromium is missing or failed (bash tools/setup.sh demo installs it)"
fi

if [ $keep_web -eq 1 ]; then
    step "Running: open $url in a browser; Ctrl-C stops everything"
    serving=1
    wait "$web_pid" || true
    serving=0
fi

step "Stop everything"
stop
echo "pbweb, pb_host and the simulator have ended"

step "Where the files are"
cat <<EOF
  phonebook files:     $data_dir/pb_sim_file, $data_dir/pb_device_file
  exported text files: $out/device_selection.csv, $out/sim_all.csv,
                       $out/device.vcf, $out/device-backup.txt
  the card as changed: $out/sim_card.txt
  service log:         $out/pb_host.log
  the web page:        $out/pbweb.png (screenshot), $out/pbweb.log
EOF
