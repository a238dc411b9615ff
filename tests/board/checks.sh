# shellcheck shell=dash
# Shared by what runs on the emulated boards: checks, what the chip must be sent, and what the kernel
# saw sent. The result is told on the console as GUEST_RC=0 or 1; end_board comes from who uses this.

# check WHAT COMMAND...: the command must succeed within 10 s; the first that does not ends it all.
check() {
    what=$1
    shift
    tries=0
    while ! "$@" >/run/check 2>&1; do
        tries=$((tries + 1))
        if [ $tries -ge 100 ]; then
            echo "FAILED: $what"
            tail -n 40 /run/check
            end_board 1
        fi
        sleep 0.1
    done
    echo "ok: $what"
}

# expect THREAD RESULT FIRST BYTE...: one more two-byte write per byte, to registers from the first on.
expect() {
    thread=$1 result=$2 reg=$3
    shift 3
    for byte in "$@"; do
        printf '%s write: i2c-1 #0 a=060 f=0200 l=2 [%02x-%s]\n' "$thread" "$reg" "$byte"
        printf '%s result: i2c-1 n=1 ret=%s\n' "$thread" "$result"
        reg=$((reg + 1))
    done >>/run/expected
}

expect_bring_up() { # 103 writes
    expect si5351_app 1 3 ff
    expect si5351_app 1 16 80 80 80 80 80 80 80 80
    expect si5351_app 1 2 ff
    expect si5351_app 1 4 20
    expect si5351_app 1 7 0f
    expect si5351_app 1 15 00 0d 0d 0d 8c 8c 8c 8c 8c
    expect si5351_app 1 26 00 03 00 0e aa 00 00 02
    expect si5351_app 1 42 01 00 00 10 4f 00 00 80 01 00 00 10 4f 00 00 80 00 01 00 02 80 00 00 00
    expect si5351_app 1 90 00 00
    expect si5351_app 1 149 00 00 00 00 00 00 00
    expect si5351_app 1 162 00 00 00 00 00 00
    expect si5351_app 1 183 92
    expect si5351_app 1 177 ac
    expect si5351_app 1 3 00
    expect si5351_app 1 26 00 03 00 0e aa 00 00 02
    for first in 42 50 58; do
        expect si5351_app 1 $first ff ff 10 22 9e ff 50 1e # 73 + 253600/1048575, then / 2
    done
}

# All that went over the bus so far, but for what a script told the switch before the chip.
bus_agrees() {
    sleep 0.2 # a write too many comes late
    sed -n 's/^ *\(.*\)-[0-9]* *\[.*: i2c_/\1 /p' /sys/kernel/tracing/trace |
        grep -v '^i2ctransfer ' >/run/seen
    diff /run/expected /run/seen
}

# ctl_says STATUS TEXT ARGUMENT...: how si5351ctl ends, and a pattern of what it says.
ctl_says() {
    status=$1 pattern=$2
    shift 2
    ended=0
    si5351ctl "$@" >/run/said 2>&1 || ended=$?
    cat /run/said
    [ "$ended" -eq "$status" ] && grep -q -e "$pattern" /run/said
}

text_is() { [ "$1" = "$2" ] || { printf '%s\nwanted:\n%s\n' "$1" "$2" && false; }; }
file_is() { text_is "$(cat "$1")" "$2"; }
serves() { grep -q ' 0100007F:2AF8 ' /proc/net/udp; }
log_has() { [ "$(grep -c "$2" /run/si5351_app/si5351_app.log)" -eq "$1" ]; }
send() { bash -c 'printf "$1" >/dev/udp/127.0.0.1/11000' - "$1"; }

# ask REQUEST COUNT: sends a datagram and prints so many replies.
ask() {
    bash -c 'exec 3<>/dev/udp/127.0.0.1/11000; printf "$1" >&3
        timeout 5 dd bs=2048 count="$2" <&3 2>/dev/null' - "$1" "$2"
}
