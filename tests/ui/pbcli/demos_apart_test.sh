#!/usr/bin/env bash
# Two demos at once on one build tree, each with its own PB_DATA_DIR: both
# must pass, end with the same phonebook files and exports (the same steps
# on the same card), and leave the build's own data folder untouched. A
# program that ignored PB_DATA_DIR, or a demo file kept outside it, shows
# as a failed step, a difference between the two, or a file in the build's
# folder.
#   demos_apart_test.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1 work=$2
src=$(cd "$(dirname "$0")/../../.." && pwd)
default_dir=$(sed -n 's/^MUTILS_PB_DATA_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
rm -rf "$work"
mkdir -p "$work"
touch "$work/start"

pids=()
for run in a b; do
    PB_DEMO_BUILD_DIR=$build PB_DATA_DIR=$work/$run bash "$src/tools/demo.sh" >"$work/$run.out" 2>&1 &
    pids+=($!)
done
failed=0
for i in 0 1; do
    wait "${pids[$i]}" || { echo "demo $i failed:"; tail -n 30 "$work/$([ $i = 0 ] && echo a || echo b).out"; failed=1; }
done
[ $failed -eq 0 ] || exit 1

for f in pb_device_file pb_sim_file demo/sim_card.txt demo/device_selection.csv demo/sim_all.csv demo/device.vcf \
    demo/device-backup.txt; do
    [ -s "$work/a/$f" ] || { echo "demo a left no $f in its folder"; exit 1; }
    cmp "$work/a/$f" "$work/b/$f" || { echo "the demos' $f differ: one saw the other's files"; exit 1; }
done
touched=$(find "$default_dir" -newer "$work/start" 2>/dev/null || true)
[ -z "$touched" ] || { echo "the build's data folder was written to: $touched"; exit 1; }
echo "two demos ran side by side, each in its own folder"
