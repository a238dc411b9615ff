#!/bin/sh
# Runs the production program on an emulated board: an AArch64 Linux with its own I2C bus driver, and
# at the chip's address a file of 256 registers (no clock comes out, and no register starts as the
# chip's would). Everything is unpacked and built below build/; nothing but compilers is installed.
set -eu
cd "$(dirname "$0")/../.."
. tests/board/board.sh
fetch_board
cmake --preset aarch64 >/dev/null
cmake --build --preset aarch64 --target si5351_app si5351ctl

root=$board/bare
rm -rf "$root"
mkdir -p "$root/bin" "$root/lib" "$root/modules" "$root/config/logconf" "$root/run/si5351_app"
cp tests/board/bare_init.sh "$root/init"
cp build/aarch64/bin/si5351_app build/aarch64/bin/si5351ctl "$board/guest/bin/busybox" tests/board/checks.sh "$root/bin"
cp "$board/guest/bin/bash-static" "$root/bin/bash"
cp config/si5351_app.conf "$root/config/logconf"
sysroot=build/arm64_sysroot
for library in ld-linux-aarch64.so.1 libc.so.6 libm.so.6 libgcc_s.so.1 libncursesw.so.6 \
    libtinfo.so.6; do
    cp $sysroot/lib/aarch64-linux-gnu/$library "$root/lib"
done
for library in libstdc++.so.6 liblog4cpp.so.5; do
    cp $sysroot/usr/lib/aarch64-linux-gnu/$library "$root/lib"
done
for module in i2c-dev i2c-bcm2835 bcm2835_wdt; do
    find "$board/guest/lib/modules" -name $module.ko -exec cp {} "$root/modules" \;
done
make_initrd bare
# The switch at 0x70 stands between the bus and the chip, so that the chip can vanish and come back.
boot_board bare 120 bare "" -device pca9546,bus=i2c-bus.1,address=0x70 \
    -device at24c-eeprom,bus=i2c.0,address=0x60,rom-size=256
