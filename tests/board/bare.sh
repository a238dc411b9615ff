#!/bin/sh
# Runs the production program on an emulated board: an AArch64 Linux with its own I2C bus driver, and
# at the chip's address a file of 256 registers (no clock comes out, and no register starts as the
# chip's would). Everything is unpacked and built below build/; nothing but compilers is installed.
set -eu
cd "$(dirname "$0")/../.."
board=build/board
scripts/install_dependencies.sh build cross
scripts/make_arm64_sysroot.sh
# Debian 12's own QEMU does not model this bus.
scripts/unpack_packages.sh "$(dpkg --print-architecture)" $board/host cpio \
    qemu-system-arm/bookworm-backports qemu-system-common/bookworm-backports \
    qemu-system-data/bookworm-backports
scripts/unpack_packages.sh arm64 $board/guest @linux-image-arm64 busybox-static bash-static
cmake --preset aarch64 >/dev/null
cmake --build --preset aarch64 --target si5351_app

root=$board/root
rm -rf $root
mkdir -p $root/bin $root/lib $root/modules $root/config/logconf
cp tests/board/bare_init.sh $root/init
cp build/aarch64/bin/si5351_app $board/guest/bin/busybox $root/bin
cp $board/guest/bin/bash-static $root/bin/bash
cp config/si5351_app.conf $root/config/logconf
for library in ld-linux-aarch64.so.1 libc.so.6 libm.so.6 libgcc_s.so.1; do
    cp build/arm64_sysroot/lib/aarch64-linux-gnu/$library $root/lib
done
cp build/arm64_sysroot/usr/lib/aarch64-linux-gnu/libstdc++.so.6 $root/lib
cp build/arm64_sysroot/usr/lib/aarch64-linux-gnu/liblog4cpp.so.5 $root/lib
for module in i2c-dev i2c-bcm2835 bcm2835_wdt; do
    find $board/guest/lib/modules -name $module.ko -exec cp {} $root/modules \;
done
cpio=$PWD/$board/host/bin/cpio
(cd $root && find . | "$cpio" --quiet -o -H newc | gzip -1) >$board/initrd.gz

# The switch at 0x70 stands between the bus and the chip, so that the chip can vanish and come back.
# One thread for all four processors: two real ones would only wait for each other.
libraries=$PWD/$board/host/usr/lib/$(uname -m)-linux-gnu:$PWD/$board/host/lib/$(uname -m)-linux-gnu
LD_LIBRARY_PATH=$libraries timeout --foreground 120 $board/host/usr/bin/qemu-system-aarch64 \
    -L $board/host/usr/share/qemu -machine raspi3b -accel tcg,thread=single \
    -kernel $board/guest/boot/vmlinuz-* -initrd $board/initrd.gz \
    -dtb $board/guest/usr/lib/linux-image-*/broadcom/bcm2837-rpi-3-b.dtb \
    -append "console=ttyAMA0,115200 panic=-1 quiet loglevel=3" \
    -display none -monitor none -serial stdio -no-reboot \
    -device pca9546,bus=i2c-bus.1,address=0x70 \
    -device at24c-eeprom,bus=i2c.0,address=0x60,rom-size=256 \
    </dev/null | tr -d '\r' | tee $board/console.txt
# A panic or a time-out ends here as well: only the guest's own word counts.
grep -qx 'GUEST_RC=0' $board/console.txt
