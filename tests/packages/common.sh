# shellcheck shell=sh disable=SC2034
# Shared by the checks of installed packages; they run in namespaces of their own.

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# cover FOLDER PLACE: shows FOLDER at PLACE with all changes going to memory; they lie in $changes.
cover() {
    mount --make-rprivate /
    mount -t tmpfs tmpfs /mnt
    mkdir /mnt/changes /mnt/work /mnt/root
    mount -t overlay overlay -o "lowerdir=$1,upperdir=/mnt/changes,workdir=/mnt/work" "$2"
    changes=/mnt/changes
}
