#!/bin/bash
# Runs beside the service under its systemd: is it what the unit promises, does it act and answer
# within its bounds, does it come back, does it go with its package?
set -eu

await() { # at most 20 s
    for _ in $(seq 200); do
        if "$@" >/dev/null 2>&1; then return 0; fi
        sleep 0.1
    done
    echo "did not come: $*"
    exit 1
}
answers() {
    (exec 3<>/dev/udp/127.0.0.1/11000 && printf '\x39\x12\0\0' >&3 && timeout 1 cat <&3 >/tmp/listing) || true
    [ "$(wc -l </tmp/listing)" -eq 4 ]
}

systemctl is-enabled si5351_app
await systemctl --quiet is-active si5351_app
systemctl show -P ExecMainPID -P ActiveState -P SubState si5351_app
await answers
cat /tmp/listing
grep '^Cap' "/proc/$(pidof si5351_app)/status"

# No bus here: every register of the start was tried and reported, into the log file of the package.
await grep -q 'startup' /var/log/si5351_app.log
[ "$(grep -c 'Unable to send data' /var/log/si5351_app.log)" -eq 103 ]

/root/player/by_pkg_config 2 80 1
/root/player/build/by_cmake 1 -80 1
await test -s /tmp/genlock.json
cat /tmp/genlock.json
echo
echo dump >/tmp/si5351
await test -s /tmp/si5351.txt
head -n 4 /tmp/si5351.txt
[ "$(stat -c %a /tmp/si5351)" = 755 ]

# Killed, and at the next version of the package: another process takes over.
first=$(pidof si5351_app)
taken_over() { [ -n "$(pidof si5351_app)" ] && [ "$(pidof si5351_app)" != "$first" ]; }
kill -KILL "$first"
await taken_over
await answers
echo "killed, and back"

first=$(pidof si5351_app)
echo "# changed" >>/config/logconf/si5351_app.conf
dpkg -i /root/*.deb
await taken_over
await answers
grep '^# changed' /config/logconf/si5351_app.conf
echo "upgraded, and back"

dpkg -r si5351-clock-service si5351-clock-service-dev
[ -z "$(pidof si5351_app)" ]
echo "all well"
