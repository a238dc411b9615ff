/* Local sockets: servers, connections and datagrams on file paths. */
#include "net/vx_net_api.h"

#include <cstring>
#include <sys/un.h>
#include <unistd.h>

#include "net/socket_calls.h"

static constexpr int LOCAL_STREAM = 3; // socket kinds
static constexpr int LOCAL_DATAGRAM = 4;

static_assert(sizeof(sockaddr_un) == 110, "size the address is passed with");

/* The address of a path, cut so that its last byte stays 0. */
static sockaddr_un local_address(const char *path)
{
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path, strnlen(path, sizeof(addr.sun_path) - 1));
    return addr;
}

static const sockaddr *plain(const sockaddr_un *addr)
{
    return reinterpret_cast<const sockaddr *>(addr);
}

/* A socket bound to a path; a file of that path is removed first. */
static int bound_socket(int kind, const char *path)
{
    if (path == nullptr) return -1;
    int fd = vx_create_sock(kind);
    if (fd < 0) return -1;
    const sockaddr_un addr = local_address(path);
    (void)unlink(addr.sun_path); // usually there is none
    if (bind(fd, plain(&addr), sizeof(addr)) == 0) return fd;
    (void)vx_close_socket(&fd);
    return -1;
}

int vx_create_local_tcp_server(const char *path)
{
    int fd = bound_socket(LOCAL_STREAM, path);
    if (fd < 0 || Listen(fd, NET_BACKLOG) == 0) return fd;
    (void)vx_close_socket(&fd);
    return -1;
}

int vx_local_tcp_connect(const char *path)
{
    if (path == nullptr) return -1;
    int fd = vx_create_sock(LOCAL_STREAM);
    if (fd < 0) return -1;
    const sockaddr_un addr = local_address(path);
    if (connect(fd, plain(&addr), sizeof(addr)) == 0) return fd;
    (void)vx_close_socket(&fd);
    return -1;
}

int vx_local_tcp_send(int fd, const void *data, int len)
{
    if (fd <= 0 || data == nullptr || len == 0) return -1;
    if (len < 0) return 0;
    const auto size = static_cast<size_t>(len);
    const ssize_t first = send(fd, data, size, MSG_NOSIGNAL);
    if (first < 0) return -1;
    const auto sent = static_cast<size_t>(first);
    if (sent == size) return len;

    const ssize_t second =
        send(fd, static_cast<const char *>(data) + sent, size - sent, MSG_NOSIGNAL);
    return second < 0 ? -1 : static_cast<int>(first + second);
}

int vx_local_tcp_recv(int fd, void *buf, int len)
{
    if (fd <= 0 || buf == nullptr || len <= 0) return -1;
    return static_cast<int>(recv(fd, buf, static_cast<size_t>(len), 0));
}

int vx_create_local_udp_server(const char *path)
{
    return bound_socket(LOCAL_DATAGRAM, path);
}

int vx_local_udp_send(int fd, const char *path, const void *data, int len)
{
    if (fd <= 0 || path == nullptr || data == nullptr || len < 0) return -1;
    const sockaddr_un addr = local_address(path);
    const ssize_t sent =
        sendto(fd, data, static_cast<size_t>(len), MSG_NOSIGNAL, plain(&addr), sizeof(addr));
    return sent == len ? len : -1;
}

int vx_local_udp_recv(int fd, void *buf, int len)
{
    if (fd <= 0 || buf == nullptr || len < 0) return -1;
    return static_cast<int>(recv(fd, buf, static_cast<size_t>(len), 0));
}
