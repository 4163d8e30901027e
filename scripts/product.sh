# The product in a private prefix, as ./run and the system tests use it: put in place, started, stopped. Sourced after
# common.sh with $root set; bash, with set -eu -o pipefail. use_prefix comes first.

product_services="velcor velcorfeed dkpfagent"  # in the order of starting

# windows_path PATH: the same file as the programs in the prefix name it.
windows_path() {
    local path
    path=$(realpath -m "$1")
    printf 'Z:%s' "${path//\//\\}"
}

# product_install HOME: binaries and policy of the stage replace those of the home; a configuration that is there stays.
# What runs is stopped first and started again, when it has to be replaced. The services are registered to start with the
# machine; here the scripts start them, so the next start of the prefix must not. Each step says itself that it failed: set -e
# is off in what a caller tests.
product_install() {
    local name
    mkdir -p "$1" || return
    # A prefix of an earlier build has the driver without the name by which set-up knows its own.
    [ -e "$1/driver/velcor.sys" ] || "$common_wine" sc delete velcor >/dev/null 2>&1 || true
    "$common_wine" "$root/build/stage/bin/dkpfctl.exe" install --home "$(windows_path "$1")" || return
    for name in $product_services; do
        "$common_wine" reg add "HKLM\\System\\CurrentControlSet\\Services\\$name" /v Start /t REG_DWORD /d 3 /f || return
    done
}

# product_uninstall HOME [--purge]: takes it all back, logs and CSV files apart.
product_uninstall() {
    "$common_wine" "$root/build/stage/bin/dkpfctl.exe" uninstall --home "$(windows_path "$1")" ${2:+"$2"}
}

# product_feed HOME [ARGUMENTS]: what the feeder's service feeds the driver with; nothing: the disks of this host.
product_feed() {
    product_register velcorfeed own demand "\"$(windows_path "$1/bin/velcorfeed.exe")\" --service${2:+ $2}"
}

# product_register NAME kernel|own START COMMAND
product_register() {
    "$common_wine" sc delete "$1" >/dev/null 2>&1 || true
    "$common_wine" sc create "$1" type= "$2" start= "$3" binPath= "$4"
}

# product_set HOME KEY VALUE: one value of the configuration file, before the agent starts.
product_set() {
    sed -i "s|<$2>[^<]*</$2>|<$2>$3</$2>|" "$1/etc/cluster.xml"
}

# product_state NAME: RUNNING, STOPPED or nothing where the service is not registered.
product_state() {
    "$common_wine" sc query "$1" 2>/dev/null | tr -d '\r' | sed -n 's/^ *STATE *: *[0-9]* *\([A-Z_]*\).*/\1/p'
}

# product_start NAME: comes back when it runs; one that ends instead, or stays on its way up for a minute, is a failure.
product_start() {
    local state tries=0
    "$common_wine" net start "$1" || return
    while
        state=$(product_state "$1") || true
        # Where Wine fails to create a process, sc ends before its first word.
        [ "${state:-START_PENDING}" = START_PENDING ] && [ $((tries += 1)) -lt 300 ]
    do sleep 0.2; done
    [ "$state" = RUNNING ] || { printf 'the service %s is %s after its start\n' "$1" "${state:-not to be asked}" >&2; return 1; }
}

# product_stop: stops what runs, in the reverse order of starting; one that does not stop keeps none of the others running,
# and is a failure that the last line names. A prefix that is shut down does not tell its services.
product_stop() {
    local name words failed=
    for name in dkpfagent velcorfeed velcor; do
        # One that is on its way up takes no stop.
        while [ "$(product_state "$name")" = START_PENDING ]; do sleep 0.1; done
        [ "$(product_state "$name")" = RUNNING ] || continue
        words=$("$common_wine" net stop "$name" 2>&1 | tr -d '\r') || failed="$failed${failed:+; }$name: ${words//$'\n'/ }"
        printf '%s\n' "$words"
    done
    [ -z "$failed" ] || { printf 'not stopped: %s\n' "$failed" >&2; return 1; }
}
