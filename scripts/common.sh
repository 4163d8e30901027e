# What ./run, ./test and ./bench share. Sourced by them with $root set; bash, with set -eu -o pipefail.
#
# Messages of our own go to standard output, reasons of failures to standard error. Nothing here needs a terminal.

common_logs=$root/build/logs
common_wine=/usr/lib/wine/wine64
common_wineserver=/usr/lib/wine/wineserver

say() { printf '%s\n' "$*"; }

# complain "what failed" "why" "what to do"
complain() {
    printf 'error: %s\n' "$1" >&2
    [ -z "${2:-}" ] || printf '  cause: %s\n' "$2" >&2
    [ -z "${3:-}" ] || printf '  to do: %s\n' "$3" >&2
}

# fail "what failed" "why" "what to do"
fail() {
    complain "$@"
    exit 1
}

# ---- Phases --------------------------------------------------------------------------------------------------------

# seconds_since START, where START is a value of $EPOCHREALTIME: "12.3"
seconds_since() {
    local now=${EPOCHREALTIME/[.,]/} start=${1/[.,]/}
    local tenths=$(((now - start) / 100000))
    printf '%d.%d' $((tenths / 10)) $((tenths % 10))
}

# run_phase "label" LOG COMMAND...: runs the command with its output in build/logs/LOG and prints the label with the time it
# took. What takes longer than two seconds shows how far it is: in place on a terminal, else a line every 20 seconds.
# Returns the command's exit code; the log stays.
run_phase() {
    local label=$1 log=$common_logs/$2 start=$EPOCHREALTIME pid status=0 ticks=0 step width=0
    shift 2
    mkdir -p "$common_logs"
    "$@" >"$log" 2>&1 </dev/null &
    pid=$!
    while kill -0 "$pid" 2>/dev/null; do
        sleep 0.2
        ticks=$((ticks + 1))
        if [ -t 1 ] && ((ticks % 5 == 0 && ticks >= 10)) || { [ ! -t 1 ] && ((ticks % 100 == 0)); }; then
            step=$(tail -c 2000 "$log" | grep -aoE '\[[0-9]+/[0-9]+\]|^ *[0-9]+/[0-9]+ Test' | tail -n 1 | tr -d '[] Test' || true)
            step="  $label ... $(seconds_since "$start") s${step:+, $step}"
            if [ -t 1 ]; then printf '\r%s' "$step"; width=${#step}; else say "$step"; fi
        fi
    done
    wait "$pid" || status=$?
    ((width == 0)) || printf '\r%*s\r' "$width" ''
    if [ "$status" = 0 ]; then
        say "  $label: $(seconds_since "$start") s"
    else
        say "  $label: FAILED after $(seconds_since "$start") s (exit code $status, $log)"
    fi
    return "$status"
}

# ---- Packages ------------------------------------------------------------------------------------------------------

common_build_packages="g++-mingw-w64-x86-64-posix wine64 cmake ninja-build googletest g++
    librapidxml-dev libcli11-dev libfmt-dev nlohmann-json3-dev python3"

# as_root COMMAND...: directly as root, else through sudo. Fails with the reason where neither works.
as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
        sudo -n "$@"
    elif command -v sudo >/dev/null && [ -t 0 ]; then
        sudo "$@"
    else
        return 77
    fi
}

missing_packages() {
    local package
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null)" = "install ok installed" ] || printf '%s ' "$package"
    done
}

apt_install() {
    local options=(-q -y -o Acquire::Retries=2 -o DPkg::Lock::Timeout=120)
    as_root env DEBIAN_FRONTEND=noninteractive apt-get "${options[@]}" update &&
        as_root env DEBIAN_FRONTEND=noninteractive apt-get "${options[@]}" install --no-install-recommends "$@"
}

# install_packages PACKAGE...: installs those that are missing. Costs a few milliseconds when none is.
install_packages() {
    local missing status=0
    command -v dpkg-query >/dev/null ||
        fail "packages cannot be checked" "this is no Debian system: dpkg-query is missing" "use Debian 12, or install by hand: $*"
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    say "  installing: $missing"
    # The list is a list of words.
    # shellcheck disable=SC2086
    if run_phase "packages" packages.log apt_install $missing; then
        missing=$(missing_packages "$@")
        [ -z "$missing" ] || fail "packages are still missing: $missing" "apt-get said it was done" "see $common_logs/packages.log"
        return 0
    else
        status=$?
    fi
    if [ "$status" = 77 ]; then
        fail "packages are missing: $missing" "this account is not root and sudo asks for a password or is not there" \
            "run as root: apt-get update && apt-get install --no-install-recommends $missing"
    fi
    fail "packages could not be installed: $missing" "$(grep -aE '^(E|W):' "$common_logs/packages.log" | head -n 2 | tr '\n' ' ')" \
        "mend the cause (network, disk space, another apt running) and start again; the whole output: $common_logs/packages.log"
}

# ---- Build ---------------------------------------------------------------------------------------------------------

common_configure_and_build() {
    [ -e "$root/build/win/build.ninja" ] || cmake --preset win || return 1
    cmake --build --preset win -j2 --target "$1"
}

# build_product [TARGET]: configures when needed and builds everything, or a target, into build/win and build/stage.
build_product() {
    cd "$root"
    run_phase "build" build.log common_configure_and_build "${1:-all}" && return 0
    grep -aE -A 3 'error:|Error at|FAILED:|undefined reference' "$common_logs/build.log" | grep -av '^/usr/bin/' | head -n 30 >&2 || true
    fail "the build failed" "the first errors stand above" "mend them; the whole output: $common_logs/build.log"
}

# ---- Wine ----------------------------------------------------------------------------------------------------------

# fixed_addresses "$0" "$@": starts the script once more, with its memory at addresses that do not change from process to
# process; whatever it starts inherits that. Wine comes without its preloader, which would keep free the addresses that it
# needs: where the kernel happens to put something there, a new process dies before its first instruction, and CreateProcess
# or StartService fails with error 1359. Of 6000 processes 3 died, of 12000 with fixed addresses none. A container may
# forbid it; then all runs as it is.
fixed_addresses() {
    [ -z "${DKPF_FIXED_ADDRESSES:-}" ] || return 0
    export DKPF_FIXED_ADDRESSES=1
    ! setarch -R true 2>/dev/null || exec setarch -R "$BASH" "$@"
}

# use_prefix DIR: from here on Wine programs run in this prefix. winedbg is off: with it a crash can end with exit code 0.
# The character set is named because a machine without a locale gives Wine ASCII, and no path with other letters.
use_prefix() {
    export LC_ALL=C.UTF-8
    export WINEPREFIX=$1 WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
}

# start_prefix: makes the prefix of use_prefix when it is not there, and keeps its server running between programs.
start_prefix() {
    mkdir -p "${WINEPREFIX%/*}"
    if [ ! -e "$WINEPREFIX/system.reg" ]; then
        "$common_wine" wineboot -i >/dev/null 2>&1 </dev/null || true
        timeout 60 "$common_wineserver" -w || true
        [ -e "$WINEPREFIX/system.reg" ] || return 1
    fi
    "$common_wineserver" -p >/dev/null 2>&1 </dev/null || true
    # The first program starts the service manager, which would keep the output of a later one open.
    "$common_wine" cmd /c exit >/dev/null 2>&1 </dev/null || true
}

# stop_prefix DIR: ends every program of one prefix, and of no other. Services are not told: stop them before.
stop_prefix() {
    WINEPREFIX=$1 "$common_wineserver" -k >/dev/null 2>&1 </dev/null || true
}
