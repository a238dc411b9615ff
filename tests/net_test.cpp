/* Ground for the tests of the socket library: counted pauses, scripted calls, descriptors. */
#include "tests/net_test.h"

#include <cerrno>
#include <deque>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

#include "net/vx_net_api.h"

PAUSES_T pauses;
static std::deque<int> script;

void script_calls(const std::vector<int> &outcomes)
{
    script.assign(outcomes.begin(), outcomes.end());
}

void script_calls(int count, int outcome)
{
    script.assign(static_cast<size_t>(count), outcome);
}

int scripted_calls_left()
{
    return static_cast<int>(script.size());
}

/* The outcome of one call, if the script has one for it. */
static bool play_script(ssize_t *result)
{
    if (script.empty()) return false;
    const int outcome = script.front();
    script.pop_front();
    if (outcome == PASS) return false;
    errno = outcome;
    *result = outcome == GIVE_NOTHING ? 0 : -1;
    return true;
}

/* These stand before the C library's functions of the same names. */
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int usleep(useconds_t us)
{
    pauses.short_ones++;
    pauses.short_us += us;
    return 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    pauses.long_ones++;
    pauses.long_s += seconds;
    return 0;
}

extern "C" ssize_t sendto(int fd, const void *data, size_t len, int flags, const sockaddr *to,
                          socklen_t to_len)
{
    ssize_t result;
    if (play_script(&result)) return result;
    return syscall(SYS_sendto, fd, data, len, flags, to, to_len);
}

extern "C" ssize_t send(int fd, const void *data, size_t len, int flags)
{
    return sendto(fd, data, len, flags, nullptr, 0);
}

extern "C" ssize_t recvfrom(int fd, void *buf, size_t size, int flags, sockaddr *from,
                            socklen_t *from_len)
{
    ssize_t result;
    if (play_script(&result)) return result;
    return syscall(SYS_recvfrom, fd, buf, size, flags, from, from_len);
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

int bound_datagram_socket(int *port)
{
    const int fd = vx_create_sock(2);
    EXPECT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0), 0);
    EXPECT_EQ(vx_set_sock_noblock(fd), 0);
    sockaddr_in addr = {};
    socklen_t len = sizeof(addr);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len), 0);
    *port = ntohs(addr.sin_port);
    return fd;
}

static int count_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

void NetTest::SetUp()
{
    pauses = {};
    script.clear();
    open_before = count_descriptors();
}

void NetTest::TearDown()
{
    EXPECT_EQ(count_descriptors(), open_before) << "descriptors left open";
    EXPECT_EQ(scripted_calls_left(), 0) << "fewer attempts than expected";
}
