#!/bin/sh
# Installs what is missing, builds, and starts the service over a simulated chip in the foreground.
set -eu
cd "$(dirname "$0")"
pipe=/tmp/si5351
registers=${SI5351_SIM_REGISTERS:-/tmp/si5351_sim.regs}
logging=/config/logconf/si5351_app.conf

# What a user other than root can neither replace nor write to.
find_files_of_others() {
    if [ -d build ]; then find build ! -uid "$(id -u)" -print -quit | sed 's|/.*||'; fi
    for file in $pipe /tmp/si5351.txt /tmp/fifo.json /tmp/genlock.json "$registers"; do
        if [ -e "$file" ] && [ ! -O "$file" ]; then echo "$file"; fi
    done
}

has_bound_port() {
    readlink /proc/$$/fd/* | grep -qxF "$(awk '$2 == "0100007F:2AF8" { print "socket:[" $10 "]" }' \
        /proc/net/udp)"
}

# Waits until this process, which becomes the service, has bound its port; then says what to do next.
show_first_steps() {
    until has_bound_port; do
        kill -0 $$ 2>/dev/null || return 0
        sleep 0.2
    done
    echo
    echo "Serving on 127.0.0.1 port 11000 and on the pipe $pipe."
    if grep -qF "$registers" /proc/$$/maps; then
        echo "The registers of the simulated chip are in $registers."
    fi
    sed -n 's/^appender\..*\.fileName=//p' "$logging" 2>/dev/null | while read -r file; do
        if ! readlink /proc/$$/fd/* | grep -qxF "$file"; then continue; fi
        echo "The log goes to $file, as $logging says."
    done
    echo "In a second terminal, in $PWD:"
    echo "    echo \"inc 2\" > $pipe          # channel 2 one trim step faster: the log shows it"
    echo "    build/bin/si5351ctl status          # the three clocks at a glance"
    echo "    echo dump > $pipe; sleep 0.1; cat $pipe.txt"
    echo "    build/bin/fifo_follower 2 80 30    # a consumer that trims channel 2 for 30 s"
    echo "Ctrl-C ends the service."
}

others=
[ "$(id -u)" -eq 0 ] || others=$(find_files_of_others | xargs)
if [ -n "$others" ]; then
    echo "These belong to another user, as after a start with sudo: $others" >&2
    echo "If no service of that user is running, remove them: sudo rm -r $others" >&2
    exit 1
fi
scripts/install_dependencies.sh build
cmake --preset release -DBUILD_TESTING=OFF >/dev/null
cmake --build --preset release
(show_first_steps &) # of no parent, so that nothing is left of it
exec build/bin/si5351_app_sim
