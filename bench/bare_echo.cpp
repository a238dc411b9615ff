/* The floor for the service: the same system calls with nothing around them. Echoes a set-param as
 * 64 bytes and writes eight registers to the bus for it and for a trim. Usage: bare_echo PORT */
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "bus/i2c_bus.h"

static void write_registers(int bus)
{
    for (uint8_t reg = 50; reg < 58; reg++) {
        uint8_t bytes[] = {reg, 0};
        i2c_msg message = {};
        message.addr = 0x60;
        message.len = sizeof(bytes);
        message.buf = bytes;
        i2c_rdwr_ioctl_data transfer = {};
        transfer.msgs = &message;
        transfer.nmsgs = 1;
        (void)i2c_bus_transfer(bus, &transfer);
    }
}

static void serve(int sock, int bus)
{
    for (;;) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(sock, &set);
        timeval limit = {2, 0};
        if (select(sock + 1, &set, nullptr, nullptr, &limit) != 1) continue;
        int waiting = 0;
        (void)ioctl(sock, FIONREAD, &waiting);
        uint32_t message[16] = {};
        sockaddr_in sender = {};
        socklen_t size = sizeof(sender);
        auto *from = reinterpret_cast<sockaddr *>(&sender);
        if (recvfrom(sock, message, sizeof(message), 0, from, &size) < 1) continue;
        if (message[0] == 0x1234) (void)sendto(sock, message, sizeof(message), 0, from, size);
        write_registers(bus);
    }
}

int main(int argc, char **argv)
{
    if (argc != 2) return 2;
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    int on = 1;
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<uint16_t>(strtol(argv[1], nullptr, 10)));
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (ioctl(sock, FIONBIO, &on) != 0) return 1;
    if (bind(sock, reinterpret_cast<sockaddr *>(&own), sizeof(own)) != 0) return 1;
    serve(sock, i2c_bus_open(nullptr));
}
