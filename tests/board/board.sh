# shellcheck shell=sh
# Shared by the emulated boards: fetches what they are made of into build/board, and boots one.
board=$PWD/build/board

# However a script ends: no board runs on, and root leaves no file of its own in another user's build.
leave() {
    cat "$board"/*.pid."$$" 2>/dev/null | xargs -r kill
    [ "$(id -u)" -ne 0 ] || chown -R --reference=. build
}
trap leave EXIT
trap 'exit 1' HUP INT TERM

fetch_board() {
    scripts/install_dependencies.sh build cross
    scripts/make_arm64_sysroot.sh
    # Debian 12's own QEMU does not model this bus.
    scripts/unpack_packages.sh "$(dpkg --print-architecture)" "$board/host" cpio kmod e2fsprogs \
        qemu-system-arm/bookworm-backports qemu-system-common/bookworm-backports \
        qemu-system-data/bookworm-backports
    scripts/unpack_packages.sh arm64 "$board/guest" @linux-image-arm64 busybox-static bash-static
}

# unpacked COMMAND...: with the libraries and the programs of the packages for this machine.
unpacked() {
    LD_LIBRARY_PATH=$board/host/usr/lib/$(uname -m)-linux-gnu \
        PATH=$board/host/usr/bin:$board/host/usr/sbin:$PATH "$@"
}

# make_initrd NAME: of the folder build/board/NAME, as build/board/NAME.gz.
make_initrd() {
    (cd "$board/$1" && find . | unpacked cpio --quiet -o -H newc | gzip -1) >"$board/$1.gz"
}

# boot_board NAME SECONDS INITRD APPEND QEMU-OPTION...: the console goes to standard output and to
# build/board/NAME.txt. One thread for all four processors: two real ones would only wait for each
# other.
boot_board() {
    console=$board/$1.txt seconds=$2 initrd=$board/$3.gz append=$4
    shift 4
    unpacked timeout --foreground "$seconds" qemu-system-aarch64 -L "$board/host/usr/share/qemu" \
        -machine raspi3b -accel tcg,thread=single \
        -kernel "$board"/guest/boot/vmlinuz-* -initrd "$initrd" \
        -dtb "$board"/guest/usr/lib/linux-image-*/broadcom/bcm2837-rpi-3-b.dtb \
        -append "console=ttyAMA0,115200 panic=-1 quiet loglevel=3 $append" \
        -display none -monitor none -serial stdio -no-reboot \
        -pidfile "$console.pid.$$" "$@" </dev/null |
        tr -d '\r' | tee "$console"
    # A panic or a time-out ends here as well: only the guest's own word counts.
    grep -qx 'GUEST_RC=0' "$console"
}
