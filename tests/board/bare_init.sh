#!/bin/busybox sh
# First process of the emulated board: runs the service on the board's bus and checks what the kernel
# saw it send. Tells the result on the console as GUEST_RC=0 or 1 and ends the board.
# shellcheck shell=dash
/bin/busybox --install -s /bin
mkdir -p /proc /sys /dev /tmp /var/log
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp
mount -t tracefs tracefs /sys/kernel/tracing
ip link set lo up
# shellcheck source=tests/board/checks.sh
. /bin/checks.sh

end_board() {
    echo "GUEST_RC=$1"
    poweroff -f
}

connect_chip() { i2ctransfer -y 1 w1@0x70 0x01; }
disconnect_chip() { i2ctransfer -y 1 w1@0x70 0x00; }
load_bus() { insmod /modules/i2c-bcm2835.ko; }
has_bus() { [ -c /dev/i2c-1 ]; }
registers_are() { text_is "$(i2ctransfer -y 1 w1@0x60 "$1" r8)" "$2"; }

start_service() {
    si5351_app >>/tmp/output 2>&1 &
    service=$!
    check "$1" serves
}

stop_service() {
    check "$1" kill -0 $service
    kill -9 $service
    wait $service 2>/dev/null
}

insmod /modules/bcm2835_wdt.ko # without it the board could not be switched off
insmod /modules/i2c-dev.ko
load_bus
check "the board has its bus" has_bus
check "the chip is on the bus" connect_chip
echo 1 >/sys/kernel/tracing/events/i2c/i2c_write/enable
echo 1 >/sys/kernel/tracing/events/i2c/i2c_result/enable

expect_bring_up
start_service "the service starts"
check "bring-up is 103 writes and their results" text_is "$(wc -l </run/expected)" 206
check "bring-up reaches the bus byte for byte" bus_agrees

reply=$(ask '\x34\x12\0\0\x02\0\0\0\x44\xac\0\0' 1 | xxd -p | tr -d '\n')
check "a rate change is echoed" text_is "$reply" "341200000200000044ac0000$(printf '%0104d' 0)"
expect si5351_clk 1 50 ff ff 10 25 dc f0 44 5c # 79 + 753800/1048575, then / 2
check "a rate change writes its block" bus_agrees
send '\x35\x12\0\0\x02\0\0\0'
expect si5351_clk 1 50 ff ff 10 25 db fd 88 5b # 1400 less: 79 + 752400/1048575
check "a trim writes its block" bus_agrees
echo 'inc 3' >/tmp/si5351
expect debug_task 1 58 ff ff 10 22 9e fc f8 1e # 1200 less: 73 + 252400/1048575
check "a console trim writes its block" bus_agrees

send '\x38\x12\0\0\x01\0\0\0\0\x10\0\0\0\x04\0\0'
check "a report rewrites the status file" file_is /tmp/genlock.json '{"genlock":{'\
'"hdmi":{"fifoTotal":4096,"fifoUsed":1024,"ppmAdjusted":253600,"ppmMaxStep":300},'\
'"analog":{"fifoTotal":0,"fifoUsed":0,"ppmAdjusted":752400,"ppmMaxStep":300},'\
'"earc/spdif":{"fifoTotal":0,"fifoUsed":0,"ppmAdjusted":252400,"ppmMaxStep":300}}}'
echo dump >/tmp/si5351
check "the console dumps its records" file_is /tmp/si5351.txt 'init 5351 conf
ch:1 rate:48000 value:253600 xValue:0 defVal:253600 count:0 step:1200 status:set param mult:73 num:253600 denom:1048575 div:1
ch:2 rate:44100 value:752400 xValue:0 defVal:753800 count:-1 step:1400 status:increase mult:79 num:752400 denom:1048575 div:1
ch:3 rate:48000 value:252400 xValue:0 defVal:253600 count:-1 step:1200 status:increase mult:73 num:252400 denom:1048575 div:1
5351 step conf
44100:1400 48000:1200 88200:700 96000:600 176400:200 192000:160'
check "a dump has four replies" text_is "$(ask '\x39\x12\0\0' 4)" '5351 info
ch:1 rate:48000 value:253600 status:set param
ch:2 rate:44100 value:752400 status:increase
ch:3 rate:48000 value:252400 status:increase'
check "no error so far" log_has 0 ERROR

# The tool writes nothing but the number of the first register that it reads.
check "the tool finds the chip as it should be" ctl_says 0 '^CLK1 .* 5644930.47 Hz' chip
echo 'si5351ctl write: i2c-1 #0 a=060 f=0200 l=1 [00]
si5351ctl result: i2c-1 n=2 ret=2' >>/run/expected
check "it sets a rate" ctl_says 0 '12288104.28 Hz' rate earc 96000
expect si5351_clk 1 58 ff ff 00 22 9e fe ba 1e # 73 + 253300/1048575
check "it trims" ctl_says 0 '+1 of 24 steps' faster earc
expect si5351_clk 1 58 ff ff 00 22 9e fd 8e 1e # 600 less
check "both reach the bus" bus_agrees

disconnect_chip
send '\x36\x12\0\0\x02\0\0\0'
expect si5351_clk -121 50 ff ff 10 25 dc f0 3d 5c # back at the centre, learned 14 below: 753786
check "all eight writes are tried without a chip" bus_agrees
check "each refused write is logged" log_has 8 'ERROR .*Unable to send data --\[vx_si5351:'
check "with its address" log_has 8 'ERROR .*I2c_Write Failed at addr=\[0x60\]$'
connect_chip
send '\x35\x12\0\0\x02\0\0\0'
expect si5351_clk 1 50 ff ff 10 25 db fd 88 5b
check "the chip is served again when it is back" bus_agrees

stop_service "the service has survived"
rmmod i2c-bcm2835
check "the bus is gone" [ ! -e /dev/i2c-1 ]
start_service "the service starts without a bus"
check "every write tries to open it" log_has 104 'ERROR .*Unable to open i2c control file:/dev/i2c-1 --\['
load_bus
check "the bus is back" has_bus
send '\x34\x12\0\0\x02\0\0\0\x44\xac\0\0'
expect si5351_clk 1 50 ff ff 10 25 dc f0 44 5c
check "the service opens it by itself" bus_agrees
stop_service "the service has survived that too"
echo 0 >/sys/kernel/tracing/tracing_on
check "the chip holds what was written last" registers_are 50 '0xff 0xff 0x10 0x25 0xdc 0xf0 0x44 0x5c'
check "the chip is blank" i2ctransfer -y 1 w189@0x60 0 0=
check "the tool tells that it lost its settings" ctl_says 1 'the chip lost its settings' chip
check "nothing went past the log" file_is /tmp/output ''
end_board 0
