/* Stream sockets: listening, connecting, accepting, sending and receiving, in a blocking and a
 * non-blocking family. */
#include "net/vx_net_api.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <unistd.h>

#include "net/socket_calls.h"

static constexpr useconds_t SEND_PAUSE_US = 1000;
static constexpr int SEND_PAUSES = 1000; // per call, or per piece
static constexpr useconds_t RECV_PAUSE_US = 10000;
static constexpr int RECV_PAUSES = 500; // since the last bytes came
static constexpr int SHORT_SENDS = 3;   // in a row, after which a blocking send gives up

// Pauses in seconds when the system gives no socket, before the next answer.
static constexpr unsigned BLOCK_CONNECT_PAUSE_S = 1;
static constexpr unsigned NOBLOCK_CONNECT_PAUSE_S = 3;
static constexpr unsigned LISTEN_PAUSE_S = 3;

/* The resolver's answers for a host and a service, of any family; freed at the end of its scope. */
using ANSWERS = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

/* Result of binding a socket to a local address before its connect. */
enum LOCAL_BIND_E { LOCAL_BOUND, LOCAL_REFUSED, LOCAL_UNKNOWN };

int Listen(int fd, int backlog)
{
    if (fd <= 0) return -1;
    const char *listenq = getenv("LISTENQ");
    if (listenq != nullptr) backlog = static_cast<int>(strtol(listenq, nullptr, 10));
    if (listen(fd, backlog) == 0) return 0;
    (void)printf("dbg line %d %d\n", fd, backlog);
    return -1;
}

static ANSWERS resolve(const char *host, const char *service, int flags)
{
    addrinfo hints = {};
    hints.ai_flags = flags;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *answers = nullptr;
    if (getaddrinfo(host, service, &hints, &answers) != 0) answers = nullptr;
    return {answers, freeaddrinfo};
}

/* A socket of the kind that an answer needs; -1, after a pause, when the system gives none. */
static int make_socket(const addrinfo *answer, unsigned pause_s)
{
    const int fd = socket(answer->ai_family, answer->ai_socktype, answer->ai_protocol);
    if (fd < 0) (void)sleep(pause_s);
    return fd;
}

static bool bind_to(int fd, const addrinfo *answer)
{
    (void)vx_set_sock_attr(fd, 1, 0, 0, 0, 0); // address reuse; the bind decides
    return bind(fd, answer->ai_addr, answer->ai_addrlen) == 0;
}

int vx_tcp_listen(const char *host, const char *service, socklen_t *addr_len)
{
    const ANSWERS answers = resolve(host, service, AI_PASSIVE);
    for (const addrinfo *answer = answers.get(); answer != nullptr; answer = answer->ai_next) {
        int fd = make_socket(answer, LISTEN_PAUSE_S);
        if (fd < 0) continue;
        if (!bind_to(fd, answer)) {
            (void)vx_close_socket(&fd);
            continue;
        }
        (void)Listen(fd, NET_BACKLOG); // prints a failure; the socket is returned all the same
        if (addr_len != nullptr) *addr_len = answer->ai_addrlen;
        return fd;
    }
    return -1;
}

static LOCAL_BIND_E bind_locally(int fd, const char *host, const char *service)
{
    const ANSWERS answers = resolve(host, service, 0);
    if (answers == nullptr) return LOCAL_UNKNOWN;
    return bind_to(fd, answers.get()) ? LOCAL_BOUND : LOCAL_REFUSED;
}

/* Waits for the end of a connect that a signal interrupted: poll takes any descriptor. */
static bool wait_connected(int fd)
{
    pollfd waited = {fd, POLLOUT, 0};
    int ready;
    do {
        ready = poll(&waited, 1, -1);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/* Without a limit the socket blocks. A signal ends the connect call then, but not the connecting:
 * the system goes on with it, and it is waited for as with a socket that does not block. */
static bool connect_to(int fd, const addrinfo *answer, timeval *limit)
{
    if (connect(fd, answer->ai_addr, answer->ai_addrlen) == 0) return true;
    if (errno != (limit != nullptr ? EINPROGRESS : EINTR)) return false;
    const bool ended = limit != nullptr ? net_wait(fd, NET_WRITABLE, limit) : wait_connected(fd);
    if (!ended) return false;

    int error = 0;
    socklen_t len = sizeof(error);
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) == 0 && error == 0;
}

/* Connects to the first answer that takes the connection. With a limit, which is counted down over
 * all answers, the sockets do not block; without one they do. */
static int connect_any(const char *local_host, const char *local_service, const char *host,
                       const char *service, timeval *limit)
{
    if (host == nullptr || service == nullptr) return -1;
    const ANSWERS answers = resolve(host, service, 0);
    const unsigned pause_s = limit != nullptr ? NOBLOCK_CONNECT_PAUSE_S : BLOCK_CONNECT_PAUSE_S;
    for (const addrinfo *answer = answers.get(); answer != nullptr; answer = answer->ai_next) {
        int fd = make_socket(answer, pause_s);
        if (fd < 0) continue;
        if (limit != nullptr) {
            (void)vx_set_sock_noblock(fd); // a descriptor of 0 stays blocking
            (void)vx_set_sock_nodelay(fd); // the connection works without it
        }
        LOCAL_BIND_E local = LOCAL_BOUND;
        if (local_service != nullptr) local = bind_locally(fd, local_host, local_service);
        if (local == LOCAL_BOUND && connect_to(fd, answer, limit)) return fd;
        (void)vx_close_socket(&fd);
        if (local == LOCAL_UNKNOWN) return -1;
    }
    return -1;
}

int vx_tcp_block_connect(const char *local_host, const char *local_service, const char *host,
                         const char *service)
{
    return connect_any(local_host, local_service, host, service, nullptr);
}

int vx_tcp_block_recv(int fd, void *buf, int size, int wanted)
{
    if (fd <= 0 || buf == nullptr || size <= 0) return -1;
    const int room = wanted > 0 && wanted <= size ? wanted : size;
    const ssize_t count = recv(fd, buf, static_cast<size_t>(room), 0);
    if (count >= 0) return static_cast<int>(count);
    return errno == EINTR ? 0 : -1;
}

int vx_tcp_block_send(int fd, const void *data, int len)
{
    if (fd <= 0 || data == nullptr || len <= 0) return -1;
    int total = 0;
    int short_sends = 0;
    while (total < len && short_sends < SHORT_SENDS) {
        const ssize_t count = send(fd, static_cast<const char *>(data) + total,
                                   static_cast<size_t>(len - total), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            short_sends = 0;
            continue;
        }
        if (count <= 0) return -1;
        total += static_cast<int>(count);
        short_sends++;
    }
    return total;
}

int vx_tcp_block_accept(int fd, sockaddr *peer, socklen_t *peer_len)
{
    int accepted;
    do {
        accepted = accept(fd, peer, peer_len);
    } while (accepted < 0 && errno == ECONNABORTED);
    return accepted;
}

int vx_tcp_noblock_connect(const char *local_host, const char *local_service, const char *host,
                           const char *service, int timeout_ms)
{
    timeval limit = net_split_ms(timeout_ms);
    return connect_any(local_host, local_service, host, service, &limit);
}

int vx_tcp_noblock_recv(int fd, void *buf, int size, int wanted)
{
    if (fd <= 0 || buf == nullptr || size <= 0) return -1;
    NET_RETRY_T retry = {RECV_PAUSES, RECV_PAUSE_US, 0, false};
    const bool whole = wanted > 0;
    return net_recv(fd, buf, whole && wanted < size ? wanted : size, whole, &retry);
}

int vx_tcp_noblock_send(int fd, const void *data, int len, int *blocked, int retry_on)
{
    if (fd < 0 || data == nullptr || len <= 0) return 0;
    NET_RETRY_T retry = {retry_on != 0 ? SEND_PAUSES : 0, SEND_PAUSE_US, 0, false};
    const int sent = net_send(fd, data, len, &retry);
    if (blocked != nullptr) *blocked = retry_on != 0 && retry.exhausted ? 1 : 0;
    return sent;
}

int vx_tcp_noblock_mtu_send(int fd, const void *data, int len, int piece_size)
{
    if (fd <= 0 || data == nullptr || len <= 0 || piece_size <= 0) return -1;
    for (int sent = 0; sent < len;) {
        const int piece = len - sent < piece_size ? len - sent : piece_size;
        NET_RETRY_T retry = {SEND_PAUSES, SEND_PAUSE_US, 0, false};
        if (net_send(fd, static_cast<const char *>(data) + sent, piece, &retry) < 0) return -1;
        sent += piece;
    }
    return len;
}

int vx_tcp_noblock_accept(int fd, sockaddr *peer, socklen_t *peer_len, timeval *limit)
{
    if (fd <= 0 || limit == nullptr) return -1;
    if (!net_wait(fd, NET_READABLE, limit)) return -1;
    return vx_tcp_block_accept(fd, peer, peer_len);
}
