#!/bin/sh
# Installs the package on an emulated board with systemd, boots it, takes the bus away, upgrades and
# purges it; each board is the one of tests/board/bare.sh with a Debian on its card. Takes root.
set -eu
cd "$(dirname "$0")/../.."
. tests/board/board.sh
fetch_board
scripts/install_dependencies.sh board
scripts/build_packages.sh
scripts/build_packages.sh arm64

# The next version, with another logging file.
version=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
package=build/packages/si5351-clock-service_${version}_arm64.deb
next=$board/next
rm -rf "$next"
dpkg-deb -R "$package" "$next"
sed -i '/^Version: /s/$/+next/' "$next/DEBIAN/control"
echo '# of the next version' >>"$next/config/logconf/si5351_app.conf"
dpkg-deb --root-owner-group -b "$next" "$board/next.deb" >/dev/null
as_root=
[ "$(id -u)" -eq 0 ] || as_root=sudo
$as_root tests/board/make_card.sh "$package" "$board/next.deb"

# run_board WHICH [QEMU-OPTION...]
run_board() {
    which=$1
    shift
    late=
    [ "$which" != late ] || late=modprobe.blacklist=i2c_bcm2835
    boot_board "$which" 600 card_init "check=$which $late systemd.unit=check.target \
        systemd.mask=serial-getty@ttyAMA0.service systemd.show_status=0 trace_event=i2c:* now=$(date +%s)" \
        -drive if=sd,format=raw,file="$board/card.img" \
        -device at24c-eeprom,bus=i2c-bus.1,address=0x60,rom-size=256 "$@"
}
run_board install & # in the background: a signal shall not wait for it
wait $!
run_board boot -snapshot >/dev/null & # beside the next, on what the first has left
boot=$!
failed=
run_board late -snapshot &
wait $! || failed=late
wait $boot || failed=boot
cat "$board/boot.txt"
[ -z "$failed" ]
