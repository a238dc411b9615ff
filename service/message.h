/* Receiving the datagrams of the command protocol, for the service and the client calls. */
#pragma once

#include <netinet/in.h>

#include "service/protocol.h"

/**
 * Takes the datagram that waits first. One larger than a message is dropped, after a line of
 * vx_udp_recv on standard output.
 * @param sock     a datagram socket on which one is waiting
 * @param message  its content; bytes that it does not reach stay as they are
 * @param sender   set to its sender
 * @return its length, 1 to 64; 0 or below: it was empty or was dropped, or there was none
 */
int receive_message(int sock, SI5351_MSG_T *message, sockaddr_in *sender);
