#!/usr/bin/env bash
# Checks the service definitions as installed from a host build tree:
#  - the systemd units pass `systemd-analyze verify` (any message fails);
#  - the procd init scripts pass a shell syntax check;
#  - as root, pb_host and pbweb run as the units' account, confined as the
#    units confine them (every mount read-only but the IPC and data
#    folders, in a mount namespace of their own, no privileges), serve
#    pbcli and an HTTP request, stop cleanly, and neither they nor the
#    account could write anywhere else. Where systemd is not PID 1 (a
#    container) this is how they are started; it is skipped when not root.
#   check_services.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$(cd "$1" && pwd) work=$2
src=$(cd "$(dirname "$0")/../.." && pwd)
rm -rf "$work"
mkdir -p "$work"
work=$(cd "$work" && pwd)
# Files the account made before this run (other build trees on the same
# machine) are not this run's: only newer ones are looked at.
touch "$work/started"
stage=$work/root/usr
for c in module host tools; do cmake --install "$build" --component $c --prefix "$stage" >/dev/null; done
units=("$stage"/lib/systemd/system/pb_host.service "$stage"/lib/systemd/system/pbweb.service)

if command -v systemd-analyze >/dev/null; then
    out=$(systemd-analyze verify "${units[@]}" 2>&1) || true
    [ -z "$out" ] || { echo "services: systemd-analyze verify:"; echo "$out"; exit 1; }
    echo "services: the systemd units pass systemd-analyze verify"
else
    echo "services: no systemd-analyze here; units not verified"
fi
for s in "$stage"/etc/init.d/pb_host "$stage"/etc/init.d/pbweb; do
    [ -x "$s" ] || { echo "services: $s is not executable"; exit 1; }
    sh -n "$s"
done
echo "services: the procd init scripts pass sh -n"

if [ "$(id -u)" -ne 0 ] || ! unshare --mount true 2>/dev/null; then
    echo "services: not root, or no mount namespaces here: not started as their account"
    exit 0
fi
unit_value() { sed -n "s/^$2=//p" "$1" | tail -n 1; }
user=$(unit_value "${units[0]}" User) group=$(unit_value "${units[0]}" Group)
for u in "${units[@]}"; do
    [ "$(unit_value "$u" User)" = "$user" ] && [ "$(unit_value "$u" Group)" = "$group" ] ||
        { echo "services: $u runs as another account than pb_host"; exit 1; }
done
if ! getent passwd "$user" >/dev/null; then
    echo "services: adding the system account $user (as sysusers.d/phonebook.conf would)"
    useradd --system --user-group --no-create-home --home-dir /nonexistent --shell /usr/sbin/nologin "$user"
fi

# The folders in place of /run/phonebook and /data, and the modem's, made
# as the units' RuntimeDirectory and the service would make them.
ipc=$work/run/ipc data=$work/run/data modem=$work/run/modem
mkdir -p "$ipc" "$data" "$modem"
chmod 0770 "$ipc" "$modem"
chmod 0750 "$data"
chown "$user:$group" "$ipc" "$data" "$modem"
chmod 0755 "$work" "$work/run"
cp "$src/tools/demo/sim_card.txt" "$modem/card.txt"
chown "$user:$group" "$modem/card.txt"

# confined WRITABLE_FOLDER... -- COMMAND: COMMAND as the account, in a mount
# namespace where every mount but /proc, /sys and /dev (not /dev/shm) is
# read-only apart from the folders named, with no capabilities and no way
# to gain any. It replaces the calling shell, so that `confined ... &`
# leaves the command's own pid in $!; in the foreground, call it in ( ).
confined() {
    local rw=()
    while [ "$1" != -- ]; do rw+=("$1"); shift; done
    shift
    exec unshare --mount --propagation private bash -c '
        set -e
        n=$1; shift
        while read -r _ _ _ _ mp _; do
            case $mp in /dev/shm) ;; /proc* | /sys* | /dev*) continue ;; esac
            mp=$(printf "%b" "$mp")
            mount -o remount,bind,ro "$mp" 2>/dev/null || true
        done </proc/self/mountinfo
        for ((k = 0; k < n; k++)); do mount --bind "$1" "$1"; mount -o remount,bind,rw "$1"; shift; done
        exec setpriv --reuid="$USER_ID" --regid="$GROUP_ID" --clear-groups --no-new-privs \
            --inh-caps=-all --bounding-set=-all env -u HOME "$@"' \
        confined "${#rw[@]}" "${rw[@]}" "$@"
}
export USER_ID=$user GROUP_ID=$group LD_LIBRARY_PATH=$stage/lib ZP_IPC_DIR=$ipc PB_DATA_DIR=$data \
    ZP_NV_DIR=$data/nv
unset ZP_QMI_SOCKET

pids=()
stop_all() {
    local pid rc=0 status
    for ((k = ${#pids[@]} - 1; k >= 0; k--)); do
        pid=${pids[$k]}
        kill -TERM "$pid" 2>/dev/null || continue
        status=0
        timeout 10 tail --pid="$pid" -f /dev/null || { kill -KILL "$pid"; status=1; }
        wait "$pid" || status=$?
        [ "$status" -eq 0 ] || { echo "services: process $pid ended with status $status"; rc=1; }
    done
    pids=()
    return $rc
}
trap 'stop_all >/dev/null 2>&1 || true' EXIT

confined "$ipc" "$modem" -- "$stage/bin/pbm_simd" --card "$modem/card.txt" >"$work/pbm_simd.log" 2>&1 &
pids+=($!)
confined "$ipc" "$data" -- "$stage/bin/pb_host" 2>"$work/pb_host.log" &
pids+=($!)
confined "$ipc" "$data" -- "$stage/bin/pbweb" --listen 127.0.0.1:0 >"$work/pbweb.out" 2>"$work/pbweb.log" &
pids+=($!)
pbcli() { (confined "$ipc" "$data" -- "$stage/bin/pbcli" "$@"); }

url=""
for _ in $(seq 100); do
    url=$(sed -n 's/^pbweb: listening on //p' "$work/pbweb.out")
    [ -n "$url" ] && break
    sleep 0.1
done
[ -n "$url" ] || { echo "services: pbweb did not start:"; cat "$work/pbweb.log"; exit 1; }
pbcli --wait 30 list sim >/dev/null
pbcli add device --name "Service Check" --number +4930123456 >/dev/null
pbcli add sim --name "Service" --number +4930654321 >/dev/null
pbcli import "$src/tools/demo/contacts.csv" >/dev/null
curl -sf -H "Origin: ${url%/}" -H 'Content-Type: application/json' \
    -d '{"name":"Web Check","number":"+4930111222"}' "${url}api/device/entries" >/dev/null ||
    { echo "services: pbweb did not add an entry"; cat "$work/pbweb.log"; exit 1; }
pbcli --json list device | grep '"Web Check"' >/dev/null || { echo "services: the web page's entry is missing"; exit 1; }
echo "services: pb_host, pbweb and pbcli ran as $user with only $ipc and $data writable"

# What the account could write, from inside the same confinement.
for f in "$ipc" "$data"; do
    (confined "$ipc" "$data" -- touch "$f/probe") || { echo "services: $f is not writable for $user"; exit 1; }
    rm -f "$f/probe"
done
for f in "$src" "$build" "$work" /etc /tmp /var/tmp /dev/shm; do
    if (confined "$ipc" "$data" -- touch "$f/pb-probe-$$" 2>/dev/null); then
        rm -f "$f/pb-probe-$$"
        echo "services: $user could write in $f"
        exit 1
    fi
done
stop_all
echo "services: pbweb, pb_host and the simulator stopped cleanly"
stray=$(find / /dev/shm -xdev -user "$user" -newer "$work/started" 2>/dev/null |
    grep -v -e "^$ipc" -e "^$data" -e "^$modem" || true)
[ -z "$stray" ] || { echo "services: files of $user outside its folders:"; echo "$stray"; exit 1; }
echo "services: every file of $user is in its folders; it could write nowhere else"
