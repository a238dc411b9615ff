/* The command service: takes the command datagrams and drives the trim engine with them. */
#pragma once

#include <cstdint>
#include <netinet/in.h>

#include "service/protocol.h"

/**
 * Makes a bound, non-blocking IPv4 datagram socket.
 * @param ip    local address, dotted text; null is refused without a line
 * @param port  local port, in host byte order
 * @return the descriptor, from 1 to 1023 as vx_select wants it; or -1 (logged)
 */
int udp_socket_create(const char *ip, int port);

/**
 * Opens the I2C bus device, binds the command socket and serves datagrams forever. While the
 * socket cannot be made (logged), it tries again every 2 s.
 *
 * Datagrams are handled strictly in the order of their arrival: a set-param waits for what came
 * before it, 30 ms for each dump and much less for each other command, and for nothing that came
 * behind it. What the socket's buffer cannot hold is dropped by the kernel, which counts it in
 * /proc/net/udp.
 */
void si5351_svr_start();

/* Internal to the service from here on. */

/* What the loop keeps from one datagram to the next. */
struct SERVICE_T {
    int sock;
    SI5351_MSG_T message; // bytes that a short datagram does not reach keep the earlier content
    sockaddr_in sender;   // of the last datagram
    int32_t ch;           // held values: as last carried by a command that carries them
    int32_t rate_hz;
    int32_t fifo_total;
    int32_t fifo_used;
};

/**
 * One pass of the loop: waits for a datagram, at most 2 s, and acts on it as the table of commands
 * says. Takes the engine lock.
 * @param service  zeroes but for its socket before the first pass
 */
void serve_datagram(SERVICE_T *service);
