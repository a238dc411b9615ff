#!/bin/sh
# Builds programs against the installed library, in a folder that has nothing of the project.
# Usage: client.sh ARCHITECTURE FOLDER [CMAKE-OPTION...]
set -eu
case $1 in
arm64) export CXX=aarch64-linux-gnu-g++ ;;
*) export CXX=g++ ;;
esac
folder=$2
shift 2
rm -rf "$folder"
mkdir "$folder"
cd "$folder"
cp "${CLIENT_ROOT-}/usr/share/doc/si5351-clock-service-dev/examples/fifo_follower.cpp" player.cpp

echo "pkg-config: $(pkg-config --cflags --libs si5351_client)"
# shellcheck disable=SC2046 # a list of options
$CXX -std=c++17 -Wall -Wextra -Werror -o by_pkg_config player.cpp $(pkg-config --cflags --libs si5351_client)

cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(player LANGUAGES CXX)
add_executable(by_cmake player.cpp)
find_package(si5351_client REQUIRED)
target_link_libraries(by_cmake PRIVATE si5351_client::si5351_client)
END
cmake -S . -B build "$@" >/dev/null
cmake --build build | tail -n 1

# The plug-in of an audio program: a shared object, which takes all it calls with it.
cat >plugin.cpp <<'END'
#include <service/protocol.h>
#include <service/si5351_client.h>
int follow(int sock) { return set_increase(sock, 2) + static_cast<int>(VX_SI5351_SET_INC); }
END
# shellcheck disable=SC2046
$CXX -shared -fPIC -Wl,-z,defs -o plugin.so plugin.cpp $(pkg-config --cflags --libs si5351_client)

# The socket library alone needs no log.
cat >sockets.cpp <<'END'
#include <net/vx_net_api.h>
int main() { return vx_ip_a2n("127.0.0.1") == 0x7F000001 ? 0 : 1; }
END
# shellcheck disable=SC2046
$CXX -o sockets sockets.cpp $(pkg-config --cflags --libs vx_net)
