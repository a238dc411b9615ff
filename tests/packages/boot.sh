#!/bin/sh
# Turns into the systemd of a root folder, as process 1 of a new PID namespace. It starts the service
# and the checks in guest.sh, nothing else that is enabled there, and ends with them.
# Usage: boot.sh ROOT
set -eu
root=$1
mount -t proc proc "$root/proc"
mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
mount -t tmpfs -o mode=755 tmpfs "$root/dev"
while read -r name major minor; do
    mknod -m 666 "$root/dev/$name" c "$major" "$minor"
done <<'END'
null 1 3
zero 1 5
full 1 7
random 1 8
urandom 1 9
tty 5 0
END
ln -s /proc/self/fd "$root/dev/fd"

cat >"$root/run/check.target" <<'END'
[Unit]
Wants=si5351_app.service check.service
END
cat >"$root/run/check.service" <<'END'
[Unit]
After=si5351_app.service
[Service]
Type=oneshot
ExecStart=/bin/bash /root/guest.sh
ExecStopPost=/bin/systemctl poweroff --force
StandardOutput=append:/root/guest.log
StandardError=append:/root/guest.log
END
mkdir -p "$root/run/systemd/system"
mv "$root/run/check.target" "$root/run/check.service" "$root/run/systemd/system"
: >"$root/etc/fstab"
export container=private
exec chroot "$root" /lib/systemd/systemd --system --unit=check.target --log-target=console </dev/null
