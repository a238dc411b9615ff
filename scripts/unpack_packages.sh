#!/bin/sh
# Unpacks Debian 12 packages of any architecture into a folder; nothing is installed.
# Usage: scripts/unpack_packages.sh ARCHITECTURE FOLDER PACKAGE...
# A PACKAGE is a name, a name/release (backports count only so), or @name: what that one depends on.
# Of this machine's own architecture it unpacks as well what those need and the machine lacks.
# The folder is made whole or not at all; one that was made alike before stays as it is. /bin, /sbin
# and /lib lie in /usr, as in an installed Debian, and no link leads out of the folder.
set -eu

architecture=$1
folder=$2
shift 2
contents="$architecture $* $(cksum <"$0")"
[ "$(cat "$folder/.packages" 2>/dev/null)" != "$contents" ] || exit 0

# The machine's own sources, over lists and caches of their own.
work="$folder.new"
rm -rf "$work" "$folder"
mkdir -p "$work/.apt/lists/partial" "$work/.apt/archives/partial"
work=$(cd "$work" && pwd)
scripts/debian_sources.sh >"$work/.apt/sources.list"
sed -i '/ bookworm /{p;s// bookworm-backports /}' "$work/.apt/sources.list"
status=/var/lib/dpkg/status
if [ "$architecture" != "$(dpkg --print-architecture)" ]; then
    status="$work/.apt/status"
    : >"$status"
fi
cat >"$work/.apt/apt.conf" <<EOF
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Sandbox::User "root";
Debug::NoLocking "true";
Dir::Cache "$work/.apt";
Dir::Cache::archives "archives";
Dir::Etc::sourcelist "$work/.apt/sources.list";
Dir::Etc::sourceparts "/dev/null";
Dir::Etc::preferencesparts "/dev/null";
Dir::State::Lists "$work/.apt/lists";
Dir::State::status "$status";
EOF
export APT_CONFIG="$work/.apt/apt.conf"

echo "unpacking for $architecture: $*"
apt-get update -qq
packages=
for package in "$@"; do
    case $package in
    @*) package=$(apt-cache depends "${package#@}" | sed -n 's/^  Depends: //p') ;;
    esac
    packages="$packages $package"
done
# shellcheck disable=SC2086 # a list of words
(
    cd "$work/.apt/archives"
    apt-get download -qq $packages
    [ ! -s "$status" ] ||
        apt-get install -qq --download-only --no-install-recommends $packages >/dev/null
)
for package in "$work"/.apt/archives/*.deb; do
    dpkg -x "$package" "$work"
done
rm -rf "$work/.apt"
for place in bin sbin lib; do
    [ -d "$work/$place" ] || continue
    cp -al "$work/$place" "$work/usr"
    rm -r "${work:?}/$place"
    ln -s "usr/$place" "$work/$place"
done
find "$work" -lname '/*' | while read -r link; do
    target=$(realpath -m --relative-to="${link%/*}" "$work$(readlink "$link")")
    ln -sfn "$target" "$link"
done
echo "$contents" >"$work/.packages"
mv "$work" "$folder"
