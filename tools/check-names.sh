#!/usr/bin/env bash
# The naming rules of CONVENTIONS.md, checked by clang-tidy's
# readability-identifier-naming over the tracked sources of app/, platform/
# and tools/, with the compile database of a host build tree:
#  1. every source file as .clang-tidy has the rules (names a source file
#     declares for itself);
#  2. the module's internal headers (app/mutils/pb/pb_*.h) with constants
#     UPPER case and shared types in snake case (pb_fd, pb_file);
#  3. the internal headers of platform/ and tools/ with constants UPPER
#     case and types CamelCase.
# The device's C headers keep the device's names: include/, the module's
# public headers, platform/include and platform/qmi/include are left out.
# Prints every name that breaks a rule and fails when there is one.
#   check-names.sh [BUILD_DIR]   (default build/host)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/host}
[ -f "$build/compile_commands.json" ] || { echo "names: no $build/compile_commands.json; build $build first"; exit 1; }
jobs=$(nproc)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The header rules: .clang-tidy's naming options with the constants and,
# for the module, the types changed.
sed -n '/^CheckOptions:/,$p' .clang-tidy |
    sed -E 's/(ConstexprVariable|GlobalConstant|ClassConstant)Case, value: CamelCase/\1Case, value: UPPER_CASE/;
            /(ConstexprVariable|GlobalConstant|ClassConstant)Prefix/d' >"$work/headers.yaml"
sed -E 's/(Class|Struct|Union|Enum|TypeAlias|Typedef)Case, value: CamelCase/\1Case, value: lower_case/' \
    "$work/headers.yaml" >"$work/module_headers.yaml"
for f in headers module_headers; do
    { echo "Checks: '-*,readability-identifier-naming'"; cat "$work/$f.yaml"; } >"$work/$f.cfg"
done

# run NAME CONFIG_ARGS HEADER_FILTER FILES...: clang-tidy's naming warnings
# (those in headers only when a header filter is given), one per line.
run() {
    local name=$1 config=$2 filter=$3
    shift 3
    printf '%s\n' "$@" | xargs -n 4 -P "$jobs" clang-tidy -p "$build" --quiet --checks='-*,readability-identifier-naming' \
        $config --header-filter="$filter" 2>/dev/null |
        grep -E ': warning: .*\[readability-identifier-naming\]' |
        { if [ "$filter" = '^$' ]; then cat; else grep -E '\.h:[0-9]+:[0-9]+: warning'; fi } >"$work/$name.out" || true
}
mapfile -t module < <(git ls-files 'app/*.cpp')
mapfile -t others < <(git ls-files 'platform/*.cpp' 'tools/*.cpp')
run sources "" '^$' "${module[@]}" "${others[@]}"
run module_headers "--config-file=$work/module_headers.cfg" '/app/mutils/pb/pb_[^/]*\.h$' "${module[@]}"
run headers "--config-file=$work/headers.cfg" '/(platform/(ipc|log|mem|nv|qmi)|tools/.*)/[^/]*\.h$' "${others[@]}"

sort -u "$work"/*.out | sed "s|^$PWD/||" >"$work/all"
if [ -s "$work/all" ]; then
    echo "names: $(wc -l <"$work/all") names break the naming rules of CONVENTIONS.md:"
    cat "$work/all"
    exit 1
fi
echo "names: every name in app/, platform/ and tools/ follows CONVENTIONS.md"
