#!/bin/sh
# Prints this machine's own Debian 12 sources as lines for apt, whatever form they have here.
apt-get update --print-uris -o Dir::State::Lists=/nonexistent |
    sed -n "s|^'\(.*\)/dists/\(bookworm[a-z-]*\)/main/binary-.*|\1 \2 main|p" |
    sed 's|^|deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] |' | sort -u | grep . ||
    { echo "$0: this machine has no Debian 12 sources" >&2; exit 1; }
