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
product_install() {
    local home=$1 stage=$root/build/stage drivers=$WINEPREFIX/drive_c/windows/system32/drivers
    mkdir -p "$home"/{bin,etc,log,perf} "$drivers"
    cp --remove-destination "$stage"/bin/* "$home/bin/"
    mkdir -p "$home/etc/policy"
    cp "$stage"/etc/policy/* "$home/etc/policy/"
    [ ! -d "$stage/etc/scenarios" ] || cp -r "$stage/etc/scenarios" "$home/etc/"
    [ -e "$home/etc/cluster.xml" ] || cp "$stage/etc/cluster.xml" "$home/etc/"
    # The files of a prefix may be links shared with others: never write into one.
    cp --remove-destination "$stage/driver/velcor.sys" "$drivers/"
    # The debug switch lives here; the key has to be there, the value not.
    "$common_wine" reg add 'HKLM\Software\OSK\TARNWELL\work' /f
    product_register velcor kernel demand 'C:\windows\system32\drivers\velcor.sys'
    product_feed "$home"
    product_register dkpfagent own demand "\"$(windows_path "$home/bin/dkpfagent.exe")\""
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

product_start() { # NAME
    "$common_wine" net start "$1" && [ "$(product_state "$1")" = RUNNING ]
}

# product_stop: stops what runs, in the reverse order of starting. A prefix that is shut down does not tell its services.
product_stop() {
    local name
    for name in dkpfagent velcorfeed velcor; do
        [ "$(product_state "$name")" = RUNNING ] || continue
        "$common_wine" net stop "$name"
    done
}
