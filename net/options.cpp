/* Options of a socket, and its local address and port. */
#include "net/vx_net_api.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/tcp.h>

#include "net/socket_calls.h"

static constexpr int ON = 1;
static_assert(sizeof(timeval) == 16 && sizeof(ifreq) == 40, "sizes the options are passed with");

/* Passes the bytes of a value to the system; most options take an int. */
template <typename VALUE> static int set_option(int fd, int level, int option, const VALUE &value)
{
    return setsockopt(fd, level, option, &value, sizeof(value));
}

int vx_set_sock_attr(int fd, int reuse, int send_ms, int recv_ms, int send_size, int recv_size)
{
    if (fd <= 0) return -1;
    bool done = true;
    if (reuse != 0) done &= set_option(fd, SOL_SOCKET, SO_REUSEADDR, reuse) == 0;
    if (send_ms != 0) {
        done &= set_option(fd, SOL_SOCKET, SO_SNDTIMEO, net_split_ms(send_ms)) == 0;
        done &= set_option(fd, SOL_SOCKET, SO_RCVTIMEO, net_split_ms(recv_ms)) == 0;
    }
    if (send_size != 0) done &= set_option(fd, SOL_SOCKET, SO_SNDBUF, send_size) == 0;
    if (recv_size != 0) done &= set_option(fd, SOL_SOCKET, SO_RCVBUF, recv_size) == 0;
    return done ? 0 : -1;
}

static int set_linger(int fd, int on)
{
    if (fd <= 0) return -1;
    return set_option(fd, SOL_SOCKET, SO_LINGER, linger{on, 0}) < 0 ? -1 : 0;
}

int vx_sock_set_linger(int fd)
{
    return set_linger(fd, ON);
}

int vx_sock_unset_linger(int fd)
{
    return set_linger(fd, 0);
}

int vx_sock_bind_interface(int fd, const char *name)
{
    if (name == nullptr) return -1;
    ifreq request = {};
    memcpy(request.ifr_name, name, strnlen(name, sizeof(request.ifr_name)));
    return set_option(fd, SOL_SOCKET, SO_BINDTODEVICE, request);
}

static bool read_local_address(int fd, sockaddr_in *addr)
{
    socklen_t len = sizeof(*addr);
    return getsockname(fd, net_plain(addr), &len) == 0;
}

int vx_get_sock_ip(int fd)
{
    sockaddr_in addr = {};
    return read_local_address(fd, &addr) ? static_cast<int>(addr.sin_addr.s_addr) : -1;
}

int vx_get_sock_port(int fd)
{
    sockaddr_in addr = {};
    return read_local_address(fd, &addr) ? ntohs(addr.sin_port) : -1;
}

int vx_set_sock_nodelay(int fd)
{
    return fd > 0 ? set_option(fd, IPPROTO_TCP, TCP_NODELAY, ON) : -1;
}

int vx_set_sock_keepalive(int fd)
{
    return fd > 0 ? set_option(fd, SOL_SOCKET, SO_KEEPALIVE, ON) : -1;
}

int vx_set_sock_boardcast(int fd)
{
    return set_option(fd, SOL_SOCKET, SO_BROADCAST, ON);
}

int vx_set_sock_multicast_noloop(int fd)
{
    return set_option(fd, IPPROTO_IP, IP_MULTICAST_LOOP, uint8_t{0});
}

/* Joins or leaves a group; a text that is no address becomes 255.255.255.255, which is no group. */
static int set_membership(int fd, int option, const char *group, in_addr_t interface_ip)
{
    return set_option(fd, IPPROTO_IP, option, ip_mreq{{inet_addr(group)}, {interface_ip}});
}

int vx_set_sock_multi_membership(int fd, const char *group, uint32_t interface_ip)
{
    if (group == nullptr) return -1;
    return set_membership(fd, IP_ADD_MEMBERSHIP, group, interface_ip);
}

int vx_set_sock_rm_multi_membership(int fd, const char *group)
{
    if (group == nullptr) return -1;
    const int result = set_membership(fd, IP_DROP_MEMBERSHIP, group, INADDR_ANY);
    if (result < 0)
        (void)printf("setsockopt IP_DROP_MEMBERSHIP errno:%d info:%s\n", errno, strerror(errno));
    return result;
}
