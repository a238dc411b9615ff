#!/bin/sh
# Makes build/board/card.img, the installed board's system, with the packages in its /root; and
# build/board/card_init, which starts it. Takes root, for the owners of the files. Usage:
# make_card.sh PACKAGE...
set -eu
cd "$(dirname "$0")/../.."
. tests/board/board.sh
card=$board/card

# The base system, kept for the next time. The scripts in its packages run under QEMU.
debian="mmdebstrap --mode=root --variant=essential --architectures=arm64 --skip=check/qemu \
    --aptopt='Acquire::Languages \"none\"' --dpkgopt='path-exclude=/usr/share/locale/*' \
    --include=systemd,systemd-sysv,udev,kmod,dbus,procps,liblog4cpp5v5 bookworm - -"

# Where the machine cannot run AArch64 programs by itself, only a user namespace learns it (from Linux
# 6.7 on). Its root has no rights on the machine: it changes no setting and reads no closed home.
elf='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
learn="mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc ||
        { echo '$0: this machine does not run AArch64 programs: it takes an entry for' \
            'qemu-aarch64-static in binfmt_misc, or Linux 6.7' >&2 && exit 1; }
    printf %s ':aarch64:M::$elf:$mask:$(command -v qemu-aarch64-static):OCF' \
        >/proc/sys/fs/binfmt_misc/register"
in_namespace() { # SCRIPT
    # shellcheck disable=SC2016 # the inner shell expands it
    unshare --user --mount --keep-caps sh -c 'cd /; kill -STOP $$
        exec setpriv --reuid=0 --regid=0 --clear-groups sh -ec "$0"' "$1" <"$board/sources.list" &
    until grep -qs '^State:.T' /proc/$!/status; do
        kill -0 $! # until it has failed
        sleep 0.1
    done
    echo 0 100000 65536 >/proc/$!/uid_map
    echo 0 100000 65536 >/proc/$!/gid_map
    kill -CONT $!
    wait $!
}
scripts/debian_sources.sh >"$board/sources.list"
contents="$debian $(cat "$board/sources.list")"
if [ "$(cat "$board/base.contents" 2>/dev/null)" != "$contents" ]; then
    if "$board/guest/bin/busybox" true 2>/dev/null; then
        sh -ec "$debian" <"$board/sources.list" >"$board/base.tar.new"
    else
        in_namespace "$learn; $debian" >"$board/base.tar.new"
    fi
    mv "$board/base.tar.new" "$board/base.tar"
    echo "$contents" >"$board/base.contents"
fi

rm -rf "$card" "$board/card_init"
mkdir "$card"
tar -x --numeric-owner -f "$board/base.tar" -C "$card"
version=$(ls "$board/guest/lib/modules")
modules=/lib/modules/$version
mkdir -p "$card$modules"
(cd "$board/guest$modules" && tar -c modules.builtin modules.builtin.modinfo modules.order \
    kernel/drivers/i2c kernel/drivers/mmc kernel/drivers/watchdog kernel/fs/ext4 kernel/fs/jbd2 \
    kernel/fs/mbcache.ko kernel/lib kernel/crypto kernel/arch/arm64) | tar -x -C "$card$modules"
unpacked depmod -b "$card" "$version"
mkdir -p "$card/check"
cp "$@" "$card/root"
cp tests/board/checks.sh tests/board/installed_checks.sh "$card/check"
cat >"$card/etc/systemd/system/check.target" <<'END'
[Unit]
Requires=multi-user.target check.service
END
cat >"$card/etc/systemd/system/check.service" <<'END'
[Unit]
After=multi-user.target
[Service]
Type=oneshot
ExecStart=/bin/bash /check/installed_checks.sh
ExecStopPost=/bin/systemctl poweroff --force
StandardOutput=tty
StandardError=tty
END
echo 0123456789abcdef0123456789abcdef >"$card/etc/machine-id" # not the first boot
rm -f "$board/card.img"
unpacked mke2fs -q -t ext4 -O ^metadata_csum -d "$card" -F "$board/card.img" 512M >/dev/null

mkdir -p "$board/card_init/bin" "$board/card_init/modules"
cp "$board/guest/bin/busybox" "$board/card_init/bin"
for module in bcm2835 ext4; do
    unpacked modprobe -d "$card" -S "$version" --show-depends $module
done | sed -n 's/^insmod //p' | while read -r module; do
    cp "$module" "$board/card_init/modules"
    echo "insmod /modules/${module##*/}"
done >"$board/card_init/modules/insert"
cat >"$board/card_init/init" <<'END'
#!/bin/busybox sh
/bin/busybox --install -s /bin
mkdir /proc /card
mount -t proc proc /proc
mount -t devtmpfs devtmpfs /dev
. /modules/insert
until mount -t ext4 /dev/mmcblk0 /card; do sleep 0.1; done
date -s "@$(sed 's/.*now=//; s/ .*//' /proc/cmdline)" >/dev/null # the board has no clock chip
exec switch_root /card /sbin/init
END
chmod +x "$board/card_init/init"
make_initrd card_init
rm -r "$card"
