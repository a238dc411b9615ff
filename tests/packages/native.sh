#!/bin/sh
# Installs the packages for this machine into a copy of its root, starts the service there under a
# systemd, builds client programs, and removes all again.
set -eu
cd "$(dirname "$0")/../.."
project=$PWD
. tests/packages/common.sh

root=/mnt/root
cover / $root
for place in run tmp; do mount -t tmpfs -o mode=1777 tmpfs "$root/$place"; done
mount -t proc proc $root/proc
mount -t sysfs sysfs $root/sys
mkdir -p "$root$project"
mount --bind "$project" "$root$project"
architecture=$(dpkg --print-architecture)
cp tests/packages/client.sh packaging/check/guest.sh build/packages/*_"$architecture".deb $root/root
# A container's word that no package may start anything, or bring documents.
rm -rf $root/usr/sbin/policy-rc.d $root/etc/dpkg/dpkg.cfg.d

in_root() {
    chroot $root "$@"
}

# What is left of the packages, except in dpkg's own book-keeping and the project itself.
left() {
    (cd $changes && find . \( -name '*si5351*' -o -name '*vx_net*' -o -name logconf \) \
        ! -type c ! -path './var/lib/dpkg/*' ! -path './var/cache/man/*' ! -path './root/*' \
        ! -path ".$project/*" | sort)
}
[ -z "$(left)" ] || fail "the machine has the packages already"

echo "-- installation"
in_root sh -c 'dpkg -i /root/*.deb'
in_root systemctl --quiet is-enabled si5351_app || fail "the service is not enabled"
in_root systemd-analyze verify /lib/systemd/system/si5351_app.service
in_root systemd-analyze security --offline=true --threshold=25 \
    /lib/systemd/system/si5351_app.service | tail -n 1
for page in "8 si5351_app" "7 si5351_protocol"; do
    # shellcheck disable=SC2086 # section and name
    in_root env MANWIDTH=80 man --warnings $page >/mnt/page 2>/mnt/warnings
    [ ! -s /mnt/warnings ] || fail "man $page: $(cat /mnt/warnings)"
    [ "$(wc -l </mnt/page)" -gt 40 ] || fail "man $page shows too little"
done
sed -n 1,12p /mnt/page

echo "-- client programs"
in_root sh /root/client.sh "$architecture" /root/player

echo "-- private prefix"
in_root cmake --install "$project/build/package_$architecture" --prefix /opt/trial >/dev/null
grep -q '^ExecStart=/opt/trial/sbin/si5351_app$' $root/opt/trial/lib/systemd/system/si5351_app.service ||
    fail "the unit names another program"
[ -f $root/opt/trial/config/logconf/si5351_app.conf ] || fail "the logging file is not in the prefix"
# shellcheck disable=SC2016 # the inner shell expands it
in_root sh -c 'PKG_CONFIG_PATH=$(echo /opt/trial/lib/*/pkgconfig) pkg-config --cflags si5351_client' |
    grep -q '^-I/opt/trial/' ||
    fail "the pkg-config file cannot be moved"
rm -r $root/opt/trial

echo "-- under systemd"
cgroup=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)/si5351_check
mkdir "$cgroup"
sh -c 'echo $$ >"$0/cgroup.procs"
    exec timeout -k 5 60 unshare --mount --net --uts --ipc --cgroup --pid --fork --kill-child \
        tests/packages/boot.sh "$1"' "$cgroup" $root >/mnt/boot.log 2>&1 || true
find "$cgroup" -depth -type d -exec rmdir {} \;
cat $root/root/guest.log || fail "systemd did not get so far: $(tail -n 20 /mnt/boot.log)"
tail -n 1 $root/root/guest.log | grep -q '^all well$' || fail "the service under systemd"

echo "-- left by removal and purge"
left | grep -v -e '^./config/logconf' -e '^./var/log/si5351_app.log' -e '^./etc/systemd/system/.*.wants/' \
    -e '^./var/lib/systemd/deb-systemd-helper-enabled/' >/mnt/left || true
[ ! -s /mnt/left ] || fail "left by the removal: $(cat /mnt/left)"
grep -q '^# changed' $root/config/logconf/si5351_app.conf || fail "the logging file is gone"
in_root dpkg -P si5351-clock-service
[ -z "$(left)" ] || fail "left by the purge: $(left)"
echo "nothing left"
