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

/* Called by the service thread before each pass of its loop, so at least every 2 s while it is
 * idle, and first when the socket is bound. Set before si5351_svr_start; null: nobody. */
extern void (*g_on_pass)();

/**
 * Opens the I2C bus device, binds the command socket and serves datagrams forever. While the
 * socket cannot be made (logged), it tries again every 2 s.
 *
 * Datagrams are handled strictly in the order of their arrival. A command waits for those that came
 * before it: 30 ms for each dump, much less for each other one. When the socket's buffer is full,
 * the kernel drops what comes; it counts these in /proc/net/udp.
 */
void si5351_svr_start();

/* From here on internal to the service. */

/* What the loop keeps from one datagram to the next. */
struct SERVICE_T {
    int sock;
    SI5351_MSG_T message; // a short datagram leaves the rest as the earlier ones left it
    sockaddr_in sender;   // of the last datagram
    int32_t ch;           // held values: those of the last command that had them
    int32_t rate_hz;
    int32_t fifo_total;
    int32_t fifo_used;
};

/**
 * One pass of the loop: waits for a datagram, at most 2 s, and does what its command says. Takes
 * the engine lock.
 * @param service  all zero except its socket before the first pass
 */
void serve_datagram(SERVICE_T *service);
