#!/bin/bash
# Runs on the installed board after multi-user.target: install, boot or late on the kernel's command
# line says which checks.
# shellcheck disable=SC2317 # most functions are called through check
# shellcheck source=tests/board/checks.sh
. /check/checks.sh

end_board() {
    [ "$1" -eq 0 ] || journalctl -b -u si5351_app --no-pager | tail -n 30
    echo "GUEST_RC=$1"
    systemctl poweroff --force
    exit
}
nobody() { # COMMAND...: as an ordinary user
    setpriv --reuid=65534 --regid=65534 --clear-groups bash -c '. /check/checks.sh; "$@"' - "$@"
}
fails() { ! "$@"; }
is_active() { systemctl --quiet is-active si5351_app; }
status_is() { text_is "$(systemctl show -P StatusText si5351_app)" "serving; register writes failed: $1"; }
status_is_good() { is_active && status_is "0 at the start, 0 since"; }

# sets_up WHAT: the chip gets its 103 writes, byte for byte, and no other.
sets_up() {
    expect_bring_up
    check "$1: 103 writes" bus_agrees
    check "and tells systemd" status_is_good
}

# report_shows FILL: a report of another user changes the status file for that user.
report_shows() {
    nobody send '\x38\x12\0\0\x01\0\0\0\0\x10\0\0'"\\x$1"'\0\0\0'
    check "a report of $((0x$1)) in the status file" \
        nobody grep -q "\"fifoTotal\":4096,\"fifoUsed\":$((0x$1))," /tmp/genlock.json
}

check_install() {
    check "the board has its bus" [ -d /sys/bus/i2c/devices/i2c-1 ]
    check "but no device for it" [ ! -e /dev/i2c-1 ]
    check "the package installs" dpkg -i /root/si5351-clock-service_*.deb
    sets_up "on a running board"
    check "it is enabled" systemctl --quiet is-enabled si5351_app
    check "systemd has nothing to say of its unit" \
        text_is "$(systemd-analyze verify --man=no si5351_app.service 2>&1)" ""
    kill -KILL "$(pidof si5351_app)"
    sets_up "killed and back"
}

check_boot() {
    sets_up "at boot"
    check "without any capability" grep -q '^CapEff:.*[[:space:]]0*$' "/proc/$(pidof si5351_app)/status"
    nobody send '\x35\x12\0\0\x02\0\0\0'
    expect si5351_clk 1 50 ff ff 10 22 9e fc f8 1e # 1200 less: 73 + 252400/1048575
    check "a trim of another user" bus_agrees
    report_shows 01
    check "the pipe is root's" fails nobody bash -c 'echo disable >/tmp/si5351'
    echo dump >/tmp/si5351
    check "another user reads the dump" nobody grep -q '^ch:3 rate:48000' /tmp/si5351.txt

    sysctl -q fs.protected_regular=2 fs.protected_fifos=2
    nobody touch /tmp/fifo.json
    report_shows 02
    nobody mkfifo /tmp/fifo.json
    report_shows 03
    nobody ln -s /etc/hostname /tmp/fifo.json
    report_shows 04
    si5351_app >/run/second 2>&1
    check "a second service ends" text_is "$?$(wc -l </run/second)" 11
    check "and leaves the chip alone" bus_agrees

    systemctl stop si5351_app
    check "the pipe goes with the service" [ ! -e /tmp/si5351 ]
    rm /tmp/genlock.json
    nobody ln -s /etc/hostname /tmp/genlock.json
    nobody mkfifo /tmp/si5351
    nobody timeout 60 cat /tmp/si5351 &
    systemctl start si5351_app
    sets_up "between files of others"
    report_shows 05
    check "the log is in memory" log_has 2 startup
    check "and costs no flash" [ ! -s /var/log/si5351_app.log ]
    check "nothing of a start is left over" \
        sh -c 'journalctl -b -u si5351_app >/run/journal && grep Started /run/journal &&
            ! grep -i left-over /run/journal'
}

check_late() {
    check "it serves without a bus" status_is "103 at the start, 0 since"
    check "which is in flash" grep -q ERROR /var/log/si5351_app.log
    sleep 4 # on top of the 5 s that it waits
    modprobe i2c_bcm2835
    sets_up "with a late bus"

    echo '# mine' >>/config/logconf/si5351_app.conf
    check "the next version installs" dpkg --force-confold -i /root/next.deb
    sets_up "upgraded"
    report_shows 06
    echo dump >/tmp/si5351
    check "with my logging file" grep -q '^# mine' /config/logconf/si5351_app.conf
    echo 'COMM != "si5351ctl"' >/sys/kernel/tracing/events/i2c/filter # its reads come when they like
    mkdir -p /var/lib/prometheus/node-exporter
    systemctl --quiet enable --now si5351ctl-metrics.timer
    check "metrics are written" [ -s /var/lib/prometheus/node-exporter/si5351.prom ]
    check "and not told in the journal" text_is "$(journalctl --sync; journalctl -q -b -u si5351ctl-metrics)" ""
    dpkg -r si5351-clock-service >/dev/null
    check "removed, it ends" fails pidof si5351_app
    check "my logging file stays" grep -q '^# mine' /config/logconf/si5351_app.conf
    dpkg -P si5351-clock-service >/dev/null
    check "a purge leaves what the documents name" \
        text_is "$(find / /run -xdev \( -path /root -o -path /check \) -prune -o \
            \( -name '*si5351*' -o -name 'genlock*' -o -path '/config*' \) -print | sort | xargs)" \
        "/tmp/genlock.json /tmp/si5351.txt"
}

case $(cat /proc/cmdline) in
*check=install*) check_install ;;
*check=boot*) check_boot ;;
*check=late*) check_late ;;
esac
check "no other write came later" bus_agrees
end_board 0
