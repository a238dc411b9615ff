/* Socket options as the system reports them back, and groups on the loopback interface. */
#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/tcp.h>
#include <sys/time.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetOptions = NetTest;

static long read_limit_ms(int fd, int name)
{
    const auto limit = read_option<timeval>(fd, SOL_SOCKET, name);
    return limit.tv_sec * 1000 + limit.tv_usec / 1000;
}

/* Before: reuse, limits of 2000 and 3000 ms, buffers of 5000 and 6000 bytes (read back doubled). */
TEST_F(NetOptions, AttributesAreSetOnlyWhenGiven)
{
    // clang-format off
    static const struct {
        const char *fault; int reuse, send_ms, recv_ms, send_size, recv_size, result;
        std::vector<long> read;
    } cases[] = {
        {"0 switches something off",   0,     0,    0,    0,    0,  0, {2000, 3000, 10000, 12000}},
        {"receive limit set alone",    0,     0, 5000,    0,    0,  0, {2000, 3000, 10000, 12000}},
        {"rest of a second lost",      0,  1500, 2500,    0,    0,  0, {1500, 2500, 10000, 12000}},
        {"receive limit kept at 0",    0,  1500,    0,    0,    0,  0, {1500,    0, 10000, 12000}},
        {"buffers the wrong way",      1,     0,    0, 7000, 8000,  0, {2000, 3000, 14000, 16000}},
        {"stops at the first failure", 1, -1500, 4000, 7000, 8000, -1, {2000, 4000, 14000, 16000}},
    };
    // clang-format on
    for (const auto &c : cases) {
        int fd = vx_create_sock(1);
        ASSERT_EQ(vx_set_sock_attr(fd, 1, 2000, 3000, 5000, 6000), 0);
        EXPECT_EQ(vx_set_sock_attr(fd, c.reuse, c.send_ms, c.recv_ms, c.send_size, c.recv_size),
                  c.result);
        EXPECT_EQ(read_option(fd, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ((std::vector<long>{read_limit_ms(fd, SO_SNDTIMEO), read_limit_ms(fd, SO_RCVTIMEO),
                                     read_option(fd, SOL_SOCKET, SO_SNDBUF),
                                     read_option(fd, SOL_SOCKET, SO_RCVBUF)}),
                  c.read)
            << c.fault;
        vx_close_socket(&fd);
    }
    EXPECT_EQ(vx_set_sock_attr(0, 0, 0, 0, 0, 0), -1);
}

TEST_F(NetOptions, SwitchesAreReadBack)
{
    static const struct {
        int (*set)(int fd);
        int kind, level, option, value;
    } cases[] = {
        {vx_set_sock_nodelay, 1, IPPROTO_TCP, TCP_NODELAY, 1},
        {vx_set_sock_keepalive, 1, SOL_SOCKET, SO_KEEPALIVE, 1},
        {vx_sock_set_linger, 1, SOL_SOCKET, SO_LINGER, 1},
        {vx_set_sock_boardcast, 2, SOL_SOCKET, SO_BROADCAST, 1},
        {vx_set_sock_multicast_noloop, 2, IPPROTO_IP, IP_MULTICAST_LOOP, 0},
    };
    for (const auto &c : cases) {
        int fd = vx_create_sock(c.kind);
        EXPECT_EQ(c.set(fd), 0);
        EXPECT_EQ(read_option(fd, c.level, c.option), c.value) << c.option;
        vx_close_socket(&fd);
    }
}

TEST_F(NetOptions, LocalAddressInterfaceAndLinger)
{
    int fd = vx_create_sock(-1); // odd below 0: a stream all the same
    ASSERT_EQ(vx_bind_sock(fd, 0x7F000002, 11000 + 65536), 0);
    EXPECT_EQ(read_option(fd, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(vx_get_sock_port(fd), 11000);
    EXPECT_EQ(static_cast<in_addr_t>(vx_get_sock_ip(fd)), inet_addr("127.0.0.2"));
    EXPECT_EQ(vx_get_sock_port(-1) + vx_get_sock_ip(-1), -2);
    EXPECT_EQ(vx_sock_bind_interface(fd, "lo"), 0);
    EXPECT_EQ(vx_sock_bind_interface(fd, "a-name-of-20-letters"), -1);
    EXPECT_EQ(vx_sock_bind_interface(fd, nullptr), -1);
    EXPECT_EQ(vx_sock_set_linger(fd) + vx_sock_unset_linger(fd), 0);
    EXPECT_EQ(read_option(fd, SOL_SOCKET, SO_LINGER), 0) << "still resets";
    for (auto *set : {vx_set_sock_nodelay, vx_set_sock_keepalive, vx_sock_set_linger})
        EXPECT_EQ(set(0) + set(-1), -2);
    vx_close_socket(&fd);
}

TEST_F(NetOptions, GroupsAreJoinedAndLeft)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to set a route in";
    static const char *group = "239.1.2.3";
    const std::string not_joined =
        "setsockopt IP_DROP_MEMBERSHIP errno:99 info:Cannot assign requested address\n";
    int fd = vx_create_sock(2);
    EXPECT_EQ(vx_set_sock_multi_membership(fd, "239.1.2.4", htonl(INADDR_LOOPBACK)), 0);
    // A group can be left only on the interface that a route names for it.
    ASSERT_EQ(system("ip route add 224.0.0.0/4 dev lo"), 0); // NOLINT(cert-env33-c)
    ASSERT_EQ(vx_bind_sock(fd, INADDR_ANY, 0) + vx_set_sock_noblock(fd), 0);
    CaptureStdout();
    for (const std::string heard : {"", "abc", ""}) { // left in vain, joined, left
        const int result = heard.empty()
                               ? vx_set_sock_rm_multi_membership(fd, group)
                               : vx_set_sock_multi_membership(fd, group, htonl(INADDR_LOOPBACK));
        EXPECT_EQ(vx_udp_send_data(group, vx_get_sock_port(fd), "abc", 3), 0);
        EXPECT_EQ(received(fd), heard);
        (void)printf("%d\n", result);
    }
    EXPECT_EQ(GetCapturedStdout(), not_joined + "-1\n0\n0\n");
    EXPECT_EQ(vx_set_sock_multi_membership(fd, nullptr, 0), -1);
    EXPECT_EQ(vx_set_sock_multi_membership(fd, "no group", 0), -1);
    EXPECT_EQ(vx_set_sock_rm_multi_membership(fd, nullptr), -1);
    vx_close_socket(&fd);
}
