#!/bin/sh
# Runs a command with net.mpls.platform_labels to be found, also where the kernel has no MPLS: zebra
# looks for it when it starts and switches MPLS off when it is missing. A tmpfs goes over the net
# sysctls of this mount namespace; those that exist are bound back into it.
# Usage: with_mpls_sysctls.sh EMPTY_DIRECTORY COMMAND...
set -eu
kept=$1
shift
sysctls=/proc/sys/net
if [ ! -d $sysctls/mpls ]; then
    mkdir -p "$kept"
    mount --rbind $sysctls "$kept"
    mount -t tmpfs tmpfs $sysctls
    for entry in "$kept"/*; do
        place=$sysctls/${entry##*/}
        if [ -d "$entry" ]; then mkdir "$place"; else : >"$place"; fi
        mount --rbind "$entry" "$place"
    done
    mkdir $sysctls/mpls
    echo 1048575 >$sysctls/mpls/platform_labels
fi
exec "$@"
