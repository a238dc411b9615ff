/* Ground for the tests of the socket library: stand-ins for calls of the C library, and peers. */
#include "tests/net_test.h"

#include <arpa/inet.h>
#include <cerrno>
#include <deque>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <unistd.h>

#include "net/vx_net_api.h"

SEEN_T seen;
std::function<void()> on_pause;
std::function<void(bool reading)> on_wait;
const std::string no_host(70, 'a');
static std::deque<int> script;

void script_calls(const std::vector<int> &outcomes)
{
    script.assign(outcomes.begin(), outcomes.end());
    seen = {};
}

int scripted_calls_left()
{
    return static_cast<int>(script.size());
}

/* The next outcome of the script: true when it stands for the call, with the result in *result. */
static bool play_script(ssize_t *result, size_t *size = nullptr)
{
    if (script.empty()) return false;
    const int outcome = script.front();
    script.pop_front();
    if (outcome == SHORT && size != nullptr) *size = 1;
    if (outcome == PASS || outcome == SHORT) return false;
    errno = outcome;
    *result = outcome == GIVE_NOTHING ? 0 : -1;
    return true;
}

template <typename FUNCTION> static FUNCTION *real(FUNCTION * /*stand_in*/, const char *name)
{
    return reinterpret_cast<FUNCTION *>(dlsym(RTLD_NEXT, name));
}

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int usleep(useconds_t us)
{
    seen.pauses++;
    seen.paused_us += us;
    if (on_pause) on_pause();
    return 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    seen.slept_s += seconds;
    return 0;
}

#define STAND_IN(name, parameters, arguments)                                        \
    extern "C" int name parameters                                                   \
    {                                                                                \
        ssize_t result;                                                              \
        if (play_script(&result)) return static_cast<int>(result);                   \
        return real(name, #name) arguments; /* NOLINT(bugprone-macro-parentheses) */ \
    }
STAND_IN(socket, (int family, int type, int protocol), (family, type, protocol))
STAND_IN(listen, (int fd, int backlog), (fd, backlog))
STAND_IN(accept, (int fd, sockaddr *peer, socklen_t *len), (fd, peer, len))

/* A connect that fails by script goes on all the same, as one does that a signal interrupts. */
extern "C" int connect(int fd, const sockaddr *to, socklen_t len)
{
    ssize_t result = real(connect, "connect")(fd, to, len);
    const int error = errno;
    if (!play_script(&result)) errno = error;
    return static_cast<int>(result);
}

extern "C" int select(int count, fd_set *readable, fd_set *writable, fd_set *other, timeval *limit)
{
    seen.waits.push_back(limit != nullptr ? limit->tv_sec * 1000000 + limit->tv_usec : -1);
    if (on_wait) on_wait(readable != nullptr);
    ssize_t result;
    if (!play_script(&result))
        return real(select, "select")(count, readable, writable, other, limit);
    const long half_us = seen.waits.back() / 2;
    if (limit != nullptr) *limit = {half_us / 1000000, half_us % 1000000};
    return static_cast<int>(result);
}

extern "C" ssize_t sendto(int fd, const void *data, size_t len, int flags, const sockaddr *to,
                          socklen_t to_len)
{
    ssize_t result;
    seen.sent.push_back(len);
    if (play_script(&result, &len)) return result;
    return real(sendto, "sendto")(fd, data, len, flags, to, to_len);
}

extern "C" ssize_t send(int fd, const void *data, size_t len, int flags)
{
    return sendto(fd, data, len, flags, nullptr, 0);
}

extern "C" ssize_t recvfrom(int fd, void *buf, size_t size, int flags, sockaddr *from,
                            socklen_t *from_len)
{
    ssize_t result;
    if (play_script(&result, &size)) return result;
    return real(recvfrom, "recvfrom")(fd, buf, size, flags, from, from_len);
}

extern "C" ssize_t recv(int fd, void *buf, size_t size, int flags)
{
    return recvfrom(fd, buf, size, flags, nullptr, nullptr);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

sockaddr_in loopback(int port)
{
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

bool in_own_namespaces()
{
    unsigned inside = 1;
    unsigned outside = 0;
    unsigned count = 0; // the namespaces of a whole machine map every id, ours a single one
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    return inside == 0 && count == 1;
}

void name_two_faces()
{
    std::ofstream("/tmp/hosts") << "::1 twofaces\n127.0.0.1 twofaces\n127.0.0.1 localhost\n";
    ASSERT_EQ(mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
}

static int connect_to_port(int fd, int port)
{
    const sockaddr_in to = loopback(port);
    return connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof(to));
}

void connect_pair(int kind, int *ours, int *peer)
{
    int bound = vx_create_sock(kind);
    *ours = vx_create_sock(kind);
    *peer = bound;
    EXPECT_EQ(vx_bind_sock(bound, INADDR_LOOPBACK, 0), 0);
    EXPECT_EQ(kind == 1 ? listen(bound, 1) : 0, 0);
    EXPECT_EQ(connect_to_port(*ours, vx_get_sock_port(bound)), 0);
    if (kind == 1) {
        *peer = accept(bound, nullptr, nullptr);
        vx_close_socket(&bound);
    } else {
        EXPECT_EQ(connect_to_port(bound, vx_get_sock_port(*ours)), 0);
    }
    EXPECT_EQ(vx_set_sock_noblock(*ours) + vx_set_sock_noblock(*peer), 0);
}

void close_all(std::initializer_list<int *> fds)
{
    for (int *fd : fds)
        vx_close_socket(fd);
}

std::string received(int fd)
{
    std::string all;
    char buf[4096];
    ssize_t count;
    while ((count = recv(fd, buf, sizeof(buf), 0)) > 0)
        all.append(buf, static_cast<size_t>(count));
    return all;
}

static long count_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

void NetTest::SetUp()
{
    on_pause = nullptr;
    on_wait = nullptr;
    script_calls({});
    open_before = count_descriptors();
}

void NetTest::TearDown()
{
    EXPECT_EQ(count_descriptors(), open_before) << "descriptors left open";
    EXPECT_EQ(scripted_calls_left(), 0) << "fewer attempts than expected";
}
