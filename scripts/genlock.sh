#!/bin/sh
# What the follower does with its streams: plays the table of scenarios in virtual time, prints each
# figure beside its limit, and ends with 1 when one is missed. It takes a minute; "short" plays
# one source phase instead of eight, and draws nothing.
# Usage: scripts/genlock.sh [short | plot], plot: draws the pictures of docs/genlock.md only.
set -eu
cd "$(dirname "$0")/.."
what=${1:-all}
case $what in
all | plot) scripts/install_dependencies.sh build plot ;;
short) scripts/install_dependencies.sh build ;;
*) echo "usage: $0 [short | plot]" >&2; exit 2 ;;
esac
cmake --preset release -B build/follower -DBUILD_TESTING=OFF >/dev/null
cmake --build build/follower --target genlock_rig >/dev/null
rig=build/follower/bin/genlock_rig

case $what in
all) $rig ;;
short) exec $rig short ;;
esac

columns=build/follower/plot
mkdir -p $columns docs/pictures
$rig plot $columns
gnuplot -e "columns='$columns'; pictures='docs/pictures'" rig/plots.gp
echo "drawn: docs/pictures"
