/* Socket calls that the files of the library share: time limits, waits, paced retries, the first
 * answer of a look-up. */
#include "net/socket_calls.h"

#include <cerrno>
#include <netdb.h>
#include <sys/socket.h>

timeval net_split_ms(int limit_ms)
{
    const long seconds = limit_ms / 1000;
    return {seconds, (limit_ms - seconds * 1000) * 1000};
}

/* After a failure the sets are as they were, so the next round uses them again. */
int net_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit)
{
    int ready;
    do {
        ready = select(count, readable, writable, exceptional, limit);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

bool net_wait(int fd, NET_READY_E ready, timeval *limit)
{
    if (fd < 0 || fd >= FD_SETSIZE) return false;

    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    fd_set *readable = ready == NET_READABLE ? &set : nullptr;
    fd_set *writable = ready == NET_WRITABLE ? &set : nullptr;
    return net_select(fd + 1, readable, writable, nullptr, limit) > 0;
}

bool net_retry(NET_RETRY_T *retry)
{
    if (errno != EAGAIN && errno != EINTR) return false;
    if (retry->made >= retry->limit) {
        retry->exhausted = true;
        return false;
    }
    retry->made++;
    (void)usleep(retry->pause_us); // a signal ends it early: pauses are counted, not timed
    return true;
}

int net_recv(int fd, void *buf, int goal, bool whole, NET_RETRY_T *retry, sockaddr_in *from,
             socklen_t *from_len)
{
    const bool with_sender = from != nullptr && from_len != nullptr;
    const socklen_t room = with_sender ? *from_len : 0;
    int total = 0;
    while (total < goal) {
        char *rest = static_cast<char *>(buf) + total;
        const auto size = static_cast<size_t>(goal - total);
        if (with_sender) *from_len = room; // the last receive put an address length there
        const ssize_t count = with_sender ? recvfrom(fd, rest, size, 0, net_plain(from), from_len)
                                          : recv(fd, rest, size, 0);
        if (count == 0) return -1;
        if (count < 0 && net_retry(retry)) continue;
        if (count < 0) return retry->exhausted ? total : -1;

        total += static_cast<int>(count);
        retry->made = 0;
        if (!whole) break;
    }
    return total;
}

int net_send(int fd, const void *data, int len, NET_RETRY_T *retry, const sockaddr_in *to)
{
    int total = 0;
    while (total < len) {
        const char *rest = static_cast<const char *>(data) + total;
        const auto size = static_cast<size_t>(len - total);
        const ssize_t count = to != nullptr
                                  ? sendto(fd, rest, size, MSG_NOSIGNAL, net_plain(to), sizeof(*to))
                                  : send(fd, rest, size, MSG_NOSIGNAL);
        if (count == 0) return -1;
        if (count < 0 && net_retry(retry)) continue;
        if (count < 0) return -1;
        total += static_cast<int>(count);
    }
    return total;
}

int net_find_ipv4(const char *text, in_addr_t *addr)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    *addr = INADDR_NONE;
    addrinfo *answers = nullptr;
    const int error = getaddrinfo(text, nullptr, &hints, &answers);
    if (error != 0) return error;

    for (const addrinfo *answer = answers; answer != nullptr; answer = answer->ai_next) {
        if (answer->ai_family != AF_INET) continue;
        *addr = reinterpret_cast<const sockaddr_in *>(answer->ai_addr)->sin_addr.s_addr;
        break;
    }
    freeaddrinfo(answers);
    return 0;
}

sockaddr_in net_ipv4(in_addr_t addr, uint16_t port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = addr;
    return result;
}
