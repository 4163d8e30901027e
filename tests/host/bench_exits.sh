#!/bin/bash
# ./bench tells a missed goal from a measurement that did not come off: by its exit code, and the goal by its mark.
# Everything that it calls stands aside: what is measured here is the script.
set -eu -o pipefail
sources=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$sources/bench" "$sources/scripts" "$work/"
mkdir -p "$work"/{calls,build/win/bench,build/win/tests/testee,build/bench/pfx,build/stage/{bin,driver,etc}}
sed -i "s|^common_wine=.*|common_wine=$work/calls/wine|; s|^common_wineserver=.*|common_wineserver=true|" \
    "$work/scripts/common.sh"
touch "$work"/build/stage/{bin/dkpfagent.exe,bin/other.dll,driver/velcor.sys,etc/cluster.xml} \
    "$work"/build/win/{bench/csv_bench.exe,tests/testee/diskperf_testee.dll} "$work/build/bench/pfx/system.reg"
cat >"$work/calls/dpkg-query" <<'TEXT'
#!/bin/bash
printf 'install ok installed'
TEXT
cat >"$work/calls/cmake" <<'TEXT'
#!/bin/bash
exit "${CMAKE_ENDS:-0}"
TEXT
cat >"$work/calls/wine" <<'TEXT'
#!/bin/bash
[ "$1" != ./csv_bench.exe ] || exit "${CSV_ENDS:-0}"
TEXT
chmod +x "$work"/calls/*

faults=0
# expect CODE TEXT ARGUMENTS...: TEXT in the output
expect() {
    local code=0 output wanted=$1 text=$2
    shift 2
    output=$(cd "$work" && PATH=$work/calls:$PATH ./bench "$@" 2>&1) || code=$?
    if [ "$code" != "$wanted" ] || ! grep -q -- "$text" <<<"$output"; then
        printf './bench %s: exit code %s, not %s, or no "%s" in:\n%s\n' "$*" "$code" "$wanted" "$text" "$output"
        faults=$((faults + 1))
    fi
}
dll=$work/build/stage/bin/tnwdiskperf.dll
truncate -s 204799 "$dll"
expect 0 ' 204799  goal  *204800    1.00$' size
expect 0 usage: --help
expect 2 'no bench is called' sise
expect 0 preparing csv
CSV_ENDS=1 expect 1 preparing csv
CSV_ENDS=3 expect 2 'the bench csv could not be measured' csv
CMAKE_ENDS=1 expect 2 'the build failed' size
CSV_ENDS=1 expect 1 ' 204799 ' csv size
truncate -s 204800 "$dll"
expect 1 '204800 MISSED' size
CSV_ENDS=3 expect 2 'MISSED' size csv  # a goal was missed before the rest came to nothing
rm "$work/build/bench/pfx/system.reg"
expect 2 'the Windows environment did not come up' size
touch "$work/build/bench/pfx/system.reg"
rm "$work/build/stage/driver/velcor.sys"  # a command that fails without a word of ours
expect 2 velcor.sys size
[ "$faults" = 0 ]
