/* The socket helper library: plain functions over integer descriptors, for programs on this board.
 *
 * Throughout, a descriptor of 0 or below stands for no socket: it is never closed, switched or
 * watched. IPv4 addresses are numbers in host byte order (127.0.0.1 is 0x7F000001) and ports are in
 * host byte order, unless a function says otherwise. 0 or a count is success, -1 failure; errno
 * stays as the failing system call left it. Messages go to standard output. No function keeps
 * state, takes a lock or raises SIGPIPE; threads may call them at once on descriptors of their own.
 */
#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>

// ---- Sockets and readiness

/**
 * Makes a socket.
 * @param kind  odd: stream, even: datagram; -2 to 2: IPv4, else local (file path). So 1 and 2 are
 *              IPv4 stream and datagram, 3 and 4 local stream and datagram
 * @return the descriptor, or -1
 */
int vx_create_sock(int kind);

/**
 * Binds a socket to an IPv4 address, with address reuse on.
 * @param fd    socket; stays open on failure
 * @param ip    local address, host byte order; INADDR_ANY for all
 * @param port  local port, host byte order, of which the low 16 bits count; 0 for any free one
 * @return 0 bound, -1 the system refused
 */
int vx_bind_sock(int fd, uint32_t ip, int port);

/**
 * Switches a socket to non-blocking mode.
 * @return 0, or -1 for no socket or a failed switch
 */
int vx_set_sock_noblock(int fd);

/** Switches a socket back to blocking mode. Results as vx_set_sock_noblock. */
int vx_set_sock_block(int fd);

/**
 * Closes a socket.
 * @param fd  the caller's variable; holds -1 afterwards
 * @return 0 closed; -1 null, or the variable holds no socket, and is left as it was
 */
int vx_close_socket(int *fd);

/**
 * Waits until a descriptor of a list is ready; a signal does not shorten the wait.
 * @param fds         descriptors, 1 to 1023; those of 0 or below are skipped
 * @param count       how many
 * @param mode        bits: 1 readable, 2 writable, 4 exceptional condition. All are waited for, but
 *                    only the lowest bit given is reported on; without any the time is waited out
 * @param timeout_ms  at most so long, in milliseconds; 0 or below: without limit
 * @return the first descriptor of the list that is ready, OR 0x10000 when readable, 0x20000 when
 *         writable, 0x40000 when exceptional (the mode bit 16 places up);
 *         0 time ran out, or only what is not reported on is ready;
 *         -1 null, negative count, nothing to watch, a descriptor of 1024 or more, or a failed wait
 */
int vx_select(const int *fds, int count, int mode, int timeout_ms);

// ---- Datagrams

/**
 * Receives one datagram, or a number of bytes out of several. When nothing waits on a non-blocking
 * socket, it tries once more after 1 ms.
 * A datagram larger than the buffer prints "socket buffer len[%ld] > bufSize[%d] error" and stays
 * where it is: the caller disposes of it, or meets it again.
 * @param fd        datagram socket
 * @param buf       room for the data
 * @param size      that room in bytes, above 0
 * @param wanted    0 or below: one datagram; else so many bytes, at most size
 * @param from      sender's address, IPv4; null, or filled when from_len is given too
 * @param from_len  room at from in bytes, then the length of the address; may be null
 * @return bytes received, with wanted possibly fewer when no more come; 0 nothing there;
 *         -1 bad arguments, a datagram of 0 bytes or one too large, or a failed receive
 */
int vx_udp_recv(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len);

/**
 * Receives once, without looking at the size first and without a second attempt; what the buffer
 * does not hold of a datagram is lost. Arguments as vx_udp_recv.
 * @return bytes received; 0 nothing there, a signal, or a datagram of 0 bytes;
 *         -1 bad arguments or a failed receive
 */
int vx_udp_recv2(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len);

/**
 * Sends data to an IPv4 address. While the socket cannot take it, tries up to three times more, at
 * 1 ms each.
 * @param fd    datagram socket
 * @param data  bytes to send
 * @param len   how many
 * @param to    destination
 * @return len; 0 nothing sent, for no socket, no data or no destination; -1 failed
 */
int vx_udp_send(int fd, const void *data, int len, const sockaddr_in *to);

/**
 * Sends one datagram from a socket of its own.
 * Prints "send create sock error %s" or "send data error:%s" with the text of errno.
 * @param to    dotted address or host name
 * @param port  destination port, 1024 to 65535
 * @param data  bytes to send
 * @param len   how many, above 0
 * @return 0 tried, whether or not it was sent; -1 bad arguments, or no socket to be had
 */
int vx_udp_send_data(const char *to, int port, const void *data, int len);

// ---- IPv4 addresses

/**
 * Turns a dotted address or a host name into a number; a name may ask the resolver and wait for it.
 * Prints "getaddrinfo error: %s" with the resolver's text when a name has no address.
 * @return the address in host byte order; 0xFFFFFFFF when there is none (which is also the number
 *         of 255.255.255.255) or for null
 */
uint32_t vx_ip_a2n(const char *text);

/**
 * Writes an address as dotted text.
 * @param ip    address, host byte order
 * @param buf   cleared, then filled; left empty when the text does not fit (16 bytes always do)
 * @param size  bytes at buf; with 0 or below nothing is written
 * @return 0, or -1 for null
 */
int vx_ip_n2a(uint32_t ip, char *buf, int size);
