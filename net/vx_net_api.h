/* The socket helper library: plain functions over integer descriptors, for programs on this board.
 *
 * This holds for every function that does not say otherwise:
 * - A descriptor of 0 or below stands for no socket: it is never closed, switched or watched.
 * - IPv4 addresses are numbers in host byte order (127.0.0.1 is 0x7F000001), ports are in host byte
 *   order. Inside a sockaddr_in both are in network byte order.
 * - 0 or a count is success, -1 is failure. errno is not always the reason: a refused argument does
 *   not set it, and what follows a failure (a close, a message, the next attempt) may change it.
 * - Messages go to standard output. They raise SIGPIPE when that is a pipe without a reader; no
 *   send raises it.
 * - A signal does not shorten a wait that has a time limit. Pauses between attempts are counted,
 *   not timed: each may take longer than it says, and a signal ends it early.
 * - Nothing is kept between calls and no lock is taken: threads may call at once, each with
 *   descriptors of its own.
 */
#pragma once

#ifndef __cplusplus
#error "C++ only: a C program sends the datagrams that docs/protocol.md describes"
#endif

#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

// ---- Sockets and readiness

/* Kinds for vx_create_sock. */
inline constexpr int VX_SOCK_STREAM = 1;
inline constexpr int VX_SOCK_DATAGRAM = 2;

/* What vx_select is asked for, and what it reports with the descriptor in the low 16 bits. */
inline constexpr int VX_WAIT_READABLE = 1;
inline constexpr int VX_IS_READABLE = 0x10000;

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
 * @return 0 bound, -1 the system refused it
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
 * Waits until a descriptor of a list is ready.
 * @param fds         descriptors, 1 to 1023; those of 0 or below are skipped
 * @param count       how many
 * @param mode        bits: 1 readable, 2 writable, 4 exceptional condition. The wait is for all
 *                    bits given, the report for the lowest one only. Without any bit the call
 *                    waits until the time has run out
 * @param timeout_ms  longest wait in milliseconds; 0 or below: forever
 * @return the first descriptor of the list that is ready, OR 0x10000 when readable, 0x20000 when
 *         writable, 0x40000 when exceptional (the mode bit 16 places up);
 *         0 the time ran out, or only something else than what is reported is ready;
 *         -1 null, negative count, nothing to watch, a descriptor of 1024 or more, or a failed wait
 */
int vx_select(const int *fds, int count, int mode, int timeout_ms);

// ---- Datagrams

/**
 * Receives one datagram, or a number of bytes from several. When a socket has nothing, or a signal
 * came, it tries once more after 1 ms; a blocking socket waits for a datagram first.
 * A datagram larger than the buffer prints "socket buffer len[%ld] > bufSize[%d] error" and stays
 * first in the socket: the caller must take it away, or meets it again at the next call. Only the
 * datagram that is first at the start of the call is looked at.
 * With a wanted length, datagrams are put one behind the other until so many bytes are there. If
 * the last one is longer than what is still wanted, its other bytes are lost without a message. A
 * result of -1 discards the bytes that had already arrived.
 * @param fd        datagram socket
 * @param buf       room for the data
 * @param size      that room in bytes, above 0
 * @param wanted    0 or below: one datagram; else so many bytes, at most size
 * @param from      for the sender of the last datagram, IPv4, address and port in network byte
 *                  order; may be null, and stays as it is when from_len is null
 * @param from_len  room at from in bytes, then the length of the address; may be null
 * @return bytes received, fewer than wanted when no more came; 0 nothing came;
 *         -1 bad arguments, a datagram of 0 bytes, the first datagram too large, or a failed
 *         receive
 */
int vx_udp_recv(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len);

/**
 * Receives one datagram, without a look at its size first and without a second attempt. Of a
 * datagram longer than wanted (or than the buffer, without a wanted length), the other bytes are
 * lost. Arguments as vx_udp_recv.
 * @return bytes received; 0 nothing there, a signal, or a datagram of 0 bytes;
 *         -1 bad arguments or a failed receive
 */
int vx_udp_recv2(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len);

/**
 * Sends data to an IPv4 address. While the socket cannot take it, tries up to three times more,
 * after 1 ms each.
 * @param fd    datagram socket
 * @param data  bytes to send
 * @param len   how many
 * @param to    destination, address and port in network byte order
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
 * @return 0 tried, whether or not it was sent; -1 bad arguments, or no socket
 */
int vx_udp_send_data(const char *to, int port, const void *data, int len);

// ---- IPv4 addresses

/**
 * Turns a dotted address or a host name into a number. For a name it asks the resolver and waits.
 * Prints "getaddrinfo error: %s" with the resolver's text when a name has no address.
 * @return the address in host byte order; 0xFFFFFFFF when there is none, or for null. That is also
 *         the number of 255.255.255.255
 */
uint32_t vx_ip_a2n(const char *text);

/**
 * Writes an address as dotted text.
 * @param ip    address, host byte order
 * @param buf   cleared, then filled; stays empty when the text does not fit (16 bytes are always
 *              enough)
 * @param size  bytes at buf; with 0 or below nothing is written
 * @return 0, or -1 for null
 */
int vx_ip_n2a(uint32_t ip, char *buf, int size);

// ---- Options. Integers are passed to the system as they are.

/**
 * Sets a group of options. An option whose value is 0 stays as it is. When one fails, the others
 * are set all the same.
 * @param fd         socket
 * @param reuse      SO_REUSEADDR
 * @param send_ms    send time limit in milliseconds; 0: neither limit is set. Negative: fails, or
 *                   in whole seconds (-1000) makes sends not wait at all
 * @param recv_ms    receive time limit in milliseconds, counts only with a send limit; 0: no limit.
 *                   Negative as for send_ms
 * @param send_size  send buffer in bytes
 * @param recv_size  receive buffer in bytes
 * @return 0 all set, -1 no socket or at least one failed
 */
int vx_set_sock_attr(int fd, int reuse, int send_ms, int recv_ms, int send_size, int recv_size);

/** Makes a close reset the connection and drop what is not sent yet (linger on, time 0).
 * @return 0, or -1 for no socket or a failure */
int vx_sock_set_linger(int fd);

/** Makes a close orderly again. Results as vx_sock_set_linger. */
int vx_sock_unset_linger(int fd);

/**
 * Ties a socket to one network interface; may need the right to open raw sockets.
 * @param name  name of the interface; the first 16 characters count
 * @return the system's result: 0, or -1; -1 for null
 */
int vx_sock_bind_interface(int fd, const char *name);

/** @return the local IPv4 address in network byte order (unlike vx_ip_a2n), 0 while unbound;
 *          -1 on failure, which is also the number of 255.255.255.255 */
int vx_get_sock_ip(int fd);

/** @return the local port in host byte order, 0 while unbound; -1 on failure */
int vx_get_sock_port(int fd);

/** Sends small pieces of a TCP stream at once. @return 0, or -1 for no socket or a failure */
int vx_set_sock_nodelay(int fd);

/** Lets the system check whether the peer of an idle connection is still there.
 * @return 0, or -1 for no socket or a failure */
int vx_set_sock_keepalive(int fd);

/** Allows sending to broadcast addresses. @return 0, or -1 */
int vx_set_sock_boardcast(int fd);

/** Keeps multicasts of this socket from being heard on this machine. @return 0, or -1 */
int vx_set_sock_multicast_noloop(int fd);

/**
 * Joins a multicast group.
 * @param group         group address as dotted text
 * @param interface_ip  address of the local interface in network byte order; 0 for any
 * @return 0, or -1 for null or a failure
 */
int vx_set_sock_multi_membership(int fd, const char *group, uint32_t interface_ip);

/**
 * Leaves a multicast group, on the interface that routes to it.
 * Prints "setsockopt IP_DROP_MEMBERSHIP errno:%d info:%s" on failure.
 * @param group  group address as dotted text
 * @return 0, or -1 for null (prints nothing) or a failure
 */
int vx_set_sock_rm_multi_membership(int fd, const char *group);

// ---- Stream sockets. A host is an IPv4 or IPv6 address or a name, a service a port number or a
// name. The environment variable LISTENQ, a decimal number, replaces the backlog of every listen.

/**
 * Listens on a bound socket. Prints "dbg line %d %d" with descriptor and backlog when it fails.
 * @param backlog  connections that may wait to be accepted
 * @return 0, or -1 for no socket (prints nothing) or a failure
 */
int Listen(int fd, int backlog);

/**
 * Makes a listening socket on the first of the resolver's answers that can be bound, with address
 * reuse and a backlog of 1024. A failed listen prints as Listen does, and the bound socket is
 * returned all the same. Where the system gives no socket, sleeps 3 s before the next answer.
 * @param host      local host; null for every local address of the family that the resolver gives
 *                  first
 * @param service   local service
 * @param addr_len  length of the bound address in bytes, set on success only; may be null
 * @return the descriptor, or -1
 */
int vx_tcp_listen(const char *host, const char *service, socklen_t *addr_len);

/**
 * Connects to the first of the resolver's answers that takes the connection. Waits as long as the
 * system does; a signal does not end the wait. Where the system gives no socket, sleeps 1 s before
 * the next answer.
 * @param local_host     local host. Only the resolver's first answer for it is used, and it must be
 *                       of the same family as the remote answer. null: the loopback address, which
 *                       may be the one of IPv6 and then fits no IPv4 answer
 * @param local_service  local service to bind to, with address reuse; null: no local binding, and
 *                       local_host is not looked at. When the bind fails, the next answer is tried
 * @param host           remote host
 * @param service        remote service
 * @return a blocking descriptor; -1 null, a host or service that does not resolve, or no answer
 *         took the connection
 */
int vx_tcp_block_connect(const char *local_host, const char *local_service, const char *host,
                         const char *service);

/**
 * Receives once.
 * @param buf     room for the data
 * @param size    that room in bytes, above 0
 * @param wanted  most bytes to receive; 0 or below, or above size: as size
 * @return bytes received; 0 the peer closed, or a signal; -1 bad arguments or a failed receive
 */
int vx_tcp_block_recv(int fd, void *buf, int size, int wanted);

/**
 * Sends everything, but gives up after three sends in a row that each leave something unsent.
 * @return bytes sent, which may be fewer than len; -1 bad arguments, or a failed send with an
 *         unknown part sent
 */
int vx_tcp_block_send(int fd, const void *data, int len);

/**
 * Accepts a connection; passes over those that their peers have given up.
 * @param peer      peer's address; may be null
 * @param peer_len  room at peer in bytes, then the length of the address; null when peer is
 * @return the new descriptor, or -1 for a failure, which can be a signal
 */
int vx_tcp_block_accept(int fd, sockaddr *peer, socklen_t *peer_len);

/**
 * Connects as vx_tcp_block_connect does, within a time limit. The socket does not block, and sends
 * small pieces at once. Where the system gives no socket, sleeps 3 s before the next answer.
 * @param timeout_ms  for all answers together, in milliseconds. 0: does not wait, the connection
 *                    must be there at once; negative: may fail even then
 * @return a non-blocking descriptor, or -1. A descriptor of 1024 or more cannot be waited for: it
 *         must be connected at once
 */
int vx_tcp_noblock_connect(const char *local_host, const char *local_service, const char *host,
                           const char *service, int timeout_ms);

/**
 * Receives what arrives, or a number of bytes. While nothing is there, tries again after 10 ms, up
 * to 500 times since the last byte came, which takes 5 s or more.
 * @param buf     room for the data
 * @param size    that room in bytes, above 0
 * @param wanted  0 or below: the first receive is enough; else so many bytes, at most size
 * @return bytes received, fewer than wanted when no more came; 0 nothing came;
 *         -1 bad arguments, the peer closed, or a failed receive; discards the bytes that had
 *         already arrived
 */
int vx_tcp_noblock_recv(int fd, void *buf, int size, int wanted);

/**
 * Sends everything. While the socket cannot take more, tries again after 1 ms, up to 1000 times in
 * the whole call.
 * @param blocked   set to 1 when all retries were used up, else to 0; may be null
 * @param retry_on  0: no retry, and blocked is set to 0
 * @return len; 0 nothing sent, for a negative descriptor or no data (blocked stays as it is);
 *         -1 failed, with an unknown part sent
 */
int vx_tcp_noblock_send(int fd, const void *data, int len, int *blocked, int retry_on);

/**
 * Sends everything in pieces, with the retries of vx_tcp_noblock_send for each piece.
 * @param piece_size  largest piece in bytes, above 0
 * @return len; -1 bad arguments or failed, with an unknown part sent
 */
int vx_tcp_noblock_mtu_send(int fd, const void *data, int len, int piece_size);

/**
 * Waits for a connection and accepts it as vx_tcp_block_accept does. Make the listener non-blocking
 * first (vx_set_sock_noblock): a peer can give its connection up between the wait and the accept,
 * and with a blocking listener the accept then waits for the next one, without limit.
 * @param limit  longest wait, counted down by it; 0 s and 0 us: does not wait; negative: -1
 * @return the new descriptor; -1 bad arguments, none came, a failure, or a descriptor of 1024 or
 *         more
 */
int vx_tcp_noblock_accept(int fd, sockaddr *peer, socklen_t *peer_len, timeval *limit);

// ---- Local sockets. Of a path of more than 107 characters, every function uses the first 107.

/**
 * Makes a listening local stream socket with a backlog of 1024. A file of that path is removed
 * first, of any kind but a directory. A failed listen prints as Listen does.
 * @return the descriptor; -1 null or a failure
 */
int vx_create_local_tcp_server(const char *path);

/** Connects to a local stream server. @return a blocking descriptor; -1 null or a failure */
int vx_local_tcp_connect(const char *path);

/**
 * Sends, with one more attempt for what the first left unsent.
 * @param len  bytes at data
 * @return bytes sent, which may be fewer than len; 0 for a negative length;
 *         -1 no socket, null, a length of 0, or a failed send
 */
int vx_local_tcp_send(int fd, const void *data, int len);

/** Receives once, at most len bytes (above 0).
 * @return bytes received, 0 at the end of the stream, -1 bad arguments or a failure */
int vx_local_tcp_recv(int fd, void *buf, int len);

/** Makes a bound local datagram socket. A file of that path is removed first,
 * of any kind but a directory.
 * @return the descriptor; -1 null or a failure */
int vx_create_local_udp_server(const char *path);

/**
 * Sends one datagram to a local datagram server.
 * @param fd    local datagram socket, for example vx_create_sock(4)
 * @param path  of the server
 * @param len   bytes at data, 0 or more
 * @return len; -1 bad arguments, no server there, or not sent whole
 */
int vx_local_udp_send(int fd, const char *path, const void *data, int len);

/** Receives one datagram. Of one longer than len, the other bytes are lost.
 * @return bytes received; -1 bad arguments or a failure */
int vx_local_udp_recv(int fd, void *buf, int len);

// ---- Ping and look-ups

/**
 * The Internet checksum (RFC 1071).
 * @param data  bytes in any alignment; null counts as none
 * @param len   how many; a last odd byte is followed by a 0
 * @return the checksum, to be stored in the machine's byte order; 0 over data that carries its own
 */
uint16_t cal_chksum(const void *data, int len);

/**
 * Sends one ICMP echo request and waits for its reply; needs the right to open raw sockets. When
 * the request cannot be sent, sleeps 5 s before it returns.
 * @param to          dotted address, written as the reply's sender will be: no leading zeros
 * @param timeout_ms  for sending, and again for all waits together, in milliseconds. 0: sending may
 *                    take any time, and the reply must be there at once; negative: fails, at the
 *                    latest at the first wait
 * @param waits       packets to look at. Every ICMP packet that this machine receives is one; on
 *                    loopback the request itself too. 0 or below: only sends
 * @return 0 the reply came, or nothing was to be done (null or empty, or no waits); -1 otherwise
 */
int vx_ping(const char *to, int timeout_ms, int waits);

/**
 * Looks up the IPv4 address of a host. For a name it asks the resolver and waits.
 * @param text  host name or dotted address
 * @return the address in network byte order (unlike vx_ip_a2n); -1 null, empty, not found, or
 *         "255.255.255.255", which has the same number
 */
int vx_get_host_ip(const char *text);

static constexpr int VX_WAN_SOURCES = 3;
static constexpr int VX_WAN_SLOT_SIZE = 32; // bytes of a text, terminator included

/** A column of the source table: one terminated text for each row. */
using VX_WAN_COLUMN_T = char[VX_WAN_SOURCES][VX_WAN_SLOT_SIZE];

/** The web services that tell a client its public address, asked in row order. */
struct VX_WAN_SOURCES_T {
    VX_WAN_COLUMN_T webUrl;     // host name
    VX_WAN_COLUMN_T ipUrl;      // its numeric address, tried when the name fails
    VX_WAN_COLUMN_T httpAction; // path of the page
    VX_WAN_COLUMN_T startCode;  // the bytes before the address in the page
    VX_WAN_COLUMN_T endCode;    // the bytes behind it
};

/** Set it before the first look-up: the hosts at start are reserved for examples and do not
 * answer. */
extern VX_WAN_SOURCES_T stWanSources;

/**
 * Asks the sources on port 80 for the public address of this machine, one after the other. Each may
 * take 15 s per connect (host name, then numeric address) and 15 s for the page. Of the page, the
 * first receive of at most 10240 bytes is searched.
 * @param text  room for at least 64 bytes; stays as it is on failure. It gets the bytes between the
 *              markers unchecked: they may be no address, and there may be none
 * @return 0; -1 null, or no source gave a page with at most 63 bytes between its markers
 */
int vx_get_wan_ip(char *text);

/** Writes a number as decimal text. @param text  at least 12 bytes; null writes nothing */
void vx_itoa(int32_t value, char *text);

/** Reverses a terminated text in place; does nothing for null. */
void reverse(char *text);
