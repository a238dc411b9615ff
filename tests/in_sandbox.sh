#!/bin/sh
# Runs a command in user, mount and network namespaces of its own, with only the loopback interface
# and an empty /tmp, so that a service running on this machine is never disturbed. Where the kernel
# refuses the namespaces it says so and runs the command in the open, one at a time.
project=$(cd "$(dirname "$0")/.." && pwd)

if ! unshare --user --map-root-user --mount --net true 2>/dev/null; then
    echo "in_sandbox: the kernel refuses namespaces; running in the open" >&2
    exec flock "$project/CMakeLists.txt" "$@"
fi

# A checkout below /tmp stays visible: it is bound into the new file system before that moves there.
# A logging file of this machine is hidden: its log file is not ours to write to.
# shellcheck disable=SC2016 # the inner shell expands it
exec unshare --user --map-root-user --mount --net sh -c '
    set -e
    ip link set lo up
    mount -t tmpfs -o mode=1777 tmpfs /mnt
    case $0 in
    /tmp/*)
        mkdir -p "/mnt${0#/tmp}"
        mount --rbind "$0" "/mnt${0#/tmp}"
        ;;
    esac
    mount --move /mnt /tmp
    if [ -d /config ]; then mount -t tmpfs tmpfs /config; fi
    cd "$PWD"
    exec "$@"' "$project" "$@"
