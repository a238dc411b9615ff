/* Sockets, readiness, datagrams, and IPv4 addresses from text and back. */
#include "net/vx_net_api.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <netdb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "net/socket_calls.h"

static constexpr int MODE_FLAG_SHIFT = 16; // from a mode bit to the flag of a result
static_assert(VX_IS_READABLE == VX_WAIT_READABLE << MODE_FLAG_SHIFT, "flag of the mode");
static constexpr useconds_t PAUSE_US = 1000; // between two attempts
static constexpr int RECV_PAUSES = 1;        // with no datagram in between
static constexpr int SEND_PAUSES = 3;        // per call
static constexpr int FIRST_FREE_PORT = 1024;
static constexpr int LAST_PORT = 65535;

int vx_create_sock(int kind)
{
    const int family = kind >= -2 && kind <= 2 ? AF_INET : AF_UNIX;
    return socket(family, kind % 2 != 0 ? SOCK_STREAM : SOCK_DGRAM, 0);
}

int vx_bind_sock(int fd, uint32_t ip, int port)
{
    const int on = 1;
    if (fd > 0) (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)); // the bind decides

    const sockaddr_in addr = net_ipv4(htonl(ip), static_cast<uint16_t>(port));
    return bind(fd, net_plain(&addr), sizeof(addr)) < 0 ? -1 : 0;
}

static int switch_noblock(int fd, int on)
{
    if (fd <= 0) return -1;
    return ioctl(fd, FIONBIO, &on) < 0 ? -1 : 0;
}

int vx_set_sock_noblock(int fd)
{
    return switch_noblock(fd, 1);
}

int vx_set_sock_block(int fd)
{
    return switch_noblock(fd, 0);
}

int vx_close_socket(int *fd)
{
    if (fd == nullptr || *fd <= 0) return -1;
    (void)close(*fd); // the descriptor is free again whatever the result
    *fd = -1;
    return 0;
}

/* Fills the set with every descriptor above 0. Returns the largest, or -1 when there is none or one
 * is too large for a set. */
static int watch_descriptors(const int *fds, int count, fd_set *set)
{
    int largest = -1;
    for (int i = 0; i < count; i++) {
        if (fds[i] <= 0) continue;
        if (fds[i] >= FD_SETSIZE) return -1;
        FD_SET(fds[i], set);
        if (fds[i] > largest) largest = fds[i];
    }
    return largest;
}

int vx_select(const int *fds, int count, int mode, int timeout_ms)
{
    if (fds == nullptr) return -1;
    fd_set watched;
    FD_ZERO(&watched);
    const int largest = watch_descriptors(fds, count, &watched);
    if (largest < 0) return -1;

    // One set per mode bit, lowest bit first: readable, writable, exceptional.
    fd_set sets[] = {watched, watched, watched};
    fd_set *asked[std::size(sets)] = {};
    int reported = -1;
    for (int i = static_cast<int>(std::size(sets)) - 1; i >= 0; i--) {
        if ((mode & (1 << i)) == 0) continue;
        asked[i] = &sets[i];
        reported = i;
    }

    timeval limit = net_split_ms(timeout_ms);
    const int ready =
        net_select(largest + 1, asked[0], asked[1], asked[2], timeout_ms > 0 ? &limit : nullptr);
    if (ready < 0) return -1;
    if (ready == 0 || reported < 0) return 0;

    for (int i = 0; i < count; i++) {
        if (fds[i] > 0 && FD_ISSET(fds[i], &sets[reported]))
            return fds[i] | (1 << reported << MODE_FLAG_SHIFT);
    }
    return 0;
}

int vx_udp_recv(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len)
{
    if (buf == nullptr || size <= 0 || wanted > size) return -1;
    int waiting = 0;
    (void)ioctl(fd, FIONREAD, &waiting); // a bad descriptor fails at the receive
    if (waiting > size) {
        (void)printf("socket buffer len[%ld] > bufSize[%d] error\n", static_cast<long>(waiting),
                     size);
        return -1;
    }
    NET_RETRY_T retry = {RECV_PAUSES, PAUSE_US, 0, false};
    const bool whole = wanted > 0;
    return net_recv(fd, buf, whole ? wanted : size, whole, &retry, from, from_len);
}

int vx_udp_recv2(int fd, void *buf, int size, int wanted, sockaddr_in *from, socklen_t *from_len)
{
    if (buf == nullptr || size <= 0 || wanted > size) return -1;
    const auto room = static_cast<size_t>(wanted > 0 ? wanted : size);
    const bool with_sender = from != nullptr && from_len != nullptr;
    const ssize_t count = recvfrom(fd, buf, room, 0, with_sender ? net_plain(from) : nullptr,
                                   with_sender ? from_len : nullptr);
    if (count >= 0) return static_cast<int>(count);
    return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

int vx_udp_send(int fd, const void *data, int len, const sockaddr_in *to)
{
    if (fd <= 0 || data == nullptr || len <= 0 || to == nullptr) return 0;
    NET_RETRY_T retry = {SEND_PAUSES, PAUSE_US, 0, false};
    return net_send(fd, data, len, &retry, to);
}

uint32_t vx_ip_a2n(const char *text)
{
    if (text == nullptr) return INADDR_NONE;
    in_addr dotted = {};
    if (inet_pton(AF_INET, text, &dotted) == 1) return ntohl(dotted.s_addr);

    in_addr_t found;
    const int error = net_find_ipv4(text, &found);
    if (error != 0) (void)printf("getaddrinfo error: %s\n", gai_strerror(error));
    return ntohl(found);
}

int vx_ip_n2a(uint32_t ip, char *buf, int size)
{
    if (buf == nullptr) return -1;
    if (size <= 0) return 0;
    memset(buf, 0, static_cast<size_t>(size));
    in_addr addr = {};
    addr.s_addr = htonl(ip);
    (void)inet_ntop(AF_INET, &addr, buf, static_cast<socklen_t>(size)); // too small: stays empty
    return 0;
}

int vx_udp_send_data(const char *to, int port, const void *data, int len)
{
    if (to == nullptr || port < FIRST_FREE_PORT || port > LAST_PORT || data == nullptr || len <= 0)
        return -1;
    int fd = vx_create_sock(VX_SOCK_DATAGRAM);
    if (fd < 0) {
        (void)printf("send create sock error %s\n", strerror(errno));
        return -1;
    }
    const sockaddr_in addr = net_ipv4(htonl(vx_ip_a2n(to)), static_cast<uint16_t>(port));
    if (vx_udp_send(fd, data, len, &addr) != len)
        (void)printf("send data error:%s\n", strerror(errno));
    (void)vx_close_socket(&fd); // a descriptor of 0 stays open
    return 0;
}
