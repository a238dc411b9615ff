/* Ground for the tests of the socket library: stand-ins for calls of the C library, and peers. */
#include "tests/net_test.h"

#include <arpa/inet.h>
#include <cerrno>
#include <deque>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/mount.h>
#include <unistd.h>

SEEN_T seen;
std::function<void(bool reading)> on_wait;
const std::string no_host(70, 'a');
static std::deque<int> script;
static long open_before; // descriptors at the start of the case

void script_calls(const std::vector<int> &outcomes)
{
    EXPECT_EQ(script.size(), 0U) << "scripted calls were not made";
    script.assign(outcomes.begin(), outcomes.end());
    seen = {};
}

/* The next outcome of the script: true when it stands for the call, with the result in *result. */
static bool play_script(ssize_t *result, size_t *size)
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
    seen.paused_us += us;
    return 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    seen.slept_s += seconds;
    return 0;
}

// clang-format off
#define STAND_IN(type, name, parameters, arguments, size)                            \
    extern "C" type name parameters                                                  \
    {                                                                                \
        ssize_t result;                                                              \
        if (play_script(&result, size)) return static_cast<type>(result);            \
        return real(name, #name) arguments; /* NOLINT(bugprone-macro-parentheses) */ \
    }
STAND_IN(int, socket, (int family, int type, int protocol), (family, type, protocol), nullptr)
STAND_IN(int, listen, (int fd, int backlog), (fd, backlog), nullptr)
STAND_IN(int, poll, (pollfd *list, nfds_t count, int limit_ms), (list, count, limit_ms), nullptr)
STAND_IN(int, accept, (int fd, sockaddr *peer, socklen_t *len), (fd, peer, len), nullptr)
STAND_IN(ssize_t, sendto, (int fd, const void *data, size_t len, int flags, const sockaddr *to,
         socklen_t to_len), (fd, data, len, flags, to, to_len), &len)
STAND_IN(ssize_t, send, (int fd, const void *data, size_t len, int flags),
         (fd, data, len, flags), &len)
STAND_IN(ssize_t, recv, (int fd, void *buf, size_t size, int flags), (fd, buf, size, flags), &size)
STAND_IN(ssize_t, recvfrom, (int fd, void *buf, size_t size, int flags, sockaddr *from,
         socklen_t *from_len), (fd, buf, size, flags, from, from_len), &size)
// clang-format on

/* A connect that fails by script goes on all the same, as one does that a signal interrupts. */
extern "C" int connect(int fd, const sockaddr *to, socklen_t len)
{
    ssize_t result = real(connect, "connect")(fd, to, len);
    const int error = errno;
    if (!play_script(&result, nullptr)) errno = error;
    return static_cast<int>(result);
}

extern "C" int select(int count, fd_set *readable, fd_set *writable, fd_set *other, timeval *limit)
{
    seen.waits.push_back(limit != nullptr ? limit->tv_sec * 1000000 + limit->tv_usec : -1);
    if (on_wait) on_wait(readable != nullptr);
    ssize_t result;
    if (!play_script(&result, nullptr))
        return real(select, "select")(count, readable, writable, other, limit);
    const long half_us = seen.waits.back() / 2;
    if (limit != nullptr) *limit = {half_us / 1000000, half_us % 1000000};
    return static_cast<int>(result);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

sockaddr_in loopback(int port)
{
    return {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
}

bool in_own_namespaces()
{
    unsigned inside = 1;
    unsigned outside = 0;
    unsigned count = 0; // the namespaces of a whole machine map every id, ours a single one
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    return inside == 0 && count == 1;
}

void connect_pair(int kind, int *ours, int *peer)
{
    const int type = kind == VX_SOCK_STREAM ? SOCK_STREAM : SOCK_DGRAM;
    int pair[2];
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, pair), 0);
    *ours = pair[0];
    *peer = pair[1];
}

std::string received(int fd)
{
    char data[64];
    const ssize_t count = recv(fd, data, sizeof(data), 0);
    return count > 0 ? std::string(data, static_cast<size_t>(count)) : "";
}

static long count_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

void NetTest::SetUp()
{
    on_wait = nullptr;
    script_calls({});
    open_before = count_descriptors();
    if (!in_own_namespaces()) return;
    std::ofstream("/tmp/hosts") << "::1 twofaces\n127.0.0.1 twofaces\n127.0.0.1 localhost\n";
    ASSERT_EQ(mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
}

void NetTest::TearDown()
{
    EXPECT_EQ(count_descriptors(), open_before) << "descriptors left open";
    script_calls({});
}
