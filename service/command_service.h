/* The command service: takes the command datagrams and drives the trim engine with them. */
#pragma once

/**
 * Makes a bound, non-blocking IPv4 datagram socket.
 * @param ip    local address, dotted text; null is refused without a line
 * @param port  local port, in host byte order
 * @return the descriptor, from 1 to 1023 as vx_select wants it; or -1 (logged)
 */
int udp_socket_create(const char *ip, int port);

/**
 * Opens the I2C bus device, binds the command socket and serves datagrams for ever. While the
 * socket cannot be made (logged), it tries again every 2 s.
 */
void si5351_svr_start();
