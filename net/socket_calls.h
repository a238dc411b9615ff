/* Socket calls that the files of the library share: time limits, waits, paced retries, the first
 * answer of a look-up. Not part of the public interface. */
#pragma once

#include <netinet/in.h>
#include <string_view>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

/** Connections that may wait to be accepted, where the caller gives no number. */
static constexpr int NET_BACKLOG = 1024;

/** What to wait for on one descriptor. */
enum NET_READY_E { NET_READABLE, NET_WRITABLE };

/** How often to pause after EAGAIN and EINTR, for how long, and what came of it. */
struct NET_RETRY_T {
    int limit;           // most pauses
    useconds_t pause_us; // length of a pause
    int made;            // pauses so far; net_recv starts again at 0 after each receive
    bool exhausted;      // no pause was left; false after any other failure
};

/** Turns milliseconds into seconds and microseconds. 0 stays 0: as a limit of select it means not
 * to wait. */
timeval net_split_ms(int limit_ms);

/**
 * Waits with select and goes on after a signal with what is left of the time.
 * @param limit  counted down by the system; null waits without a limit
 * @return as select: number of ready descriptors, 0 when the time ran out, or -1
 */
int net_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit);

/** Waits as net_select does until one descriptor is ready.
 * @return true when it is; false when the time ran out, the wait failed, or fd is 1024 or more */
bool net_wait(int fd, NET_READY_E ready, timeval *limit);

/** After a failed call: true, after a pause, when errno is EAGAIN or EINTR and a pause is left. */
bool net_retry(NET_RETRY_T *retry);

/**
 * Receives up to goal bytes with pauses as retry says, counted from the last receive that gave
 * some.
 * @param whole     true: until goal bytes are there; false: the first receive is enough
 * @param from      for the sender's address; stays as it is when from_len is null
 * @param from_len  room at from in bytes, then the length of the address; may be null
 * @return bytes received, fewer than goal when no pause was left (retry says so);
 *         -1 when a receive gave 0 bytes or failed, even after some had arrived
 */
int net_recv(int fd, void *buf, int goal, bool whole, NET_RETRY_T *retry,
             sockaddr_in *from = nullptr, socklen_t *from_len = nullptr);

/**
 * Sends everything with pauses as retry says, counted over the whole call. Never raises SIGPIPE.
 * @param to  destination; null for the connected peer
 * @return len, or -1 when a send gave 0 bytes or failed, or no pause was left (retry says so)
 */
int net_send(int fd, const void *data, int len, NET_RETRY_T *retry,
             const sockaddr_in *to = nullptr);

/**
 * Resolves a dotted address or host name, IPv4 only.
 * @param addr  first answer in network byte order; INADDR_NONE when there is none
 * @return 0, or the resolver's error code
 */
int net_find_ipv4(const char *text, in_addr_t *addr);

/** An IPv4 socket address; addr in network byte order, port in host byte order. */
sockaddr_in net_ipv4(in_addr_t addr, uint16_t port);

/** A socket address in the form that the system calls take. */
inline const sockaddr *net_plain(const sockaddr_in *addr)
{
    return reinterpret_cast<const sockaddr *>(addr);
}
inline sockaddr *net_plain(sockaddr_in *addr)
{
    return reinterpret_cast<sockaddr *>(addr);
}

/* Room that a caller of vx_get_wan_ip provides, terminator included. */
static constexpr int NET_WAN_TEXT_SIZE = 64;

/**
 * Copies the bytes between the markers of a row of stWanSources.
 * @param page  any bytes, not terminated
 * @param row   0 to VX_WAN_SOURCES - 1
 * @param text  room for NET_WAN_TEXT_SIZE bytes; terminated, or left as it is on failure
 * @return false when a marker is missing or the text between them is too long
 */
bool net_copy_marked(std::string_view page, int row, char *text);
