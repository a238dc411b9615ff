/* Sockets of every kind: options as the system reports them back, readiness, and what a connect, an
 * accept and a local path lead to. */
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/tcp.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetSocket = NetTest;

/* An int, or a time limit in milliseconds. */
static long read_option(int fd, int level, int name)
{
    timeval value = {};
    socklen_t len = sizeof(value);
    EXPECT_EQ(getsockopt(fd, level, name, &value, &len), 0);
    const bool is_limit = level == SOL_SOCKET && (name == SO_SNDTIMEO || name == SO_RCVTIMEO);
    return is_limit ? value.tv_sec * 1000 + value.tv_usec / 1000 : static_cast<int>(value.tv_sec);
}

// clang-format off
#define SET(kind, call, ...) {#call, [](int fd) { (void)fd; return call; }, kind, __VA_ARGS__}
static const struct { // sizes of buffers are read back doubled
    const char *call; int (*set)(int fd); int kind, result, level, option, value;
} options[] = {
    SET(-3, 0,                                         0, SOL_SOCKET,  SO_DOMAIN, AF_UNIX),
    SET(-2, 0,                                         0, SOL_SOCKET,  SO_DOMAIN, AF_INET),
    SET(-1, 0,                                         0, SOL_SOCKET,  SO_TYPE, SOCK_STREAM),
    SET(1, vx_bind_sock(fd, INADDR_LOOPBACK, 0),       0, SOL_SOCKET,  SO_REUSEADDR, 1),
    SET(1, vx_set_sock_attr(fd, 1, 0, 0, 0, 0),        0, SOL_SOCKET,  SO_REUSEADDR, 1),
    SET(1, vx_set_sock_attr(fd, 0, 1500, 0, 0, 0),     0, SOL_SOCKET,  SO_SNDTIMEO, 1500),
    SET(1, vx_set_sock_attr(fd, 0, 1500, 2500, 0, 0),  0, SOL_SOCKET,  SO_RCVTIMEO, 2500),
    SET(1, vx_set_sock_attr(fd, 0, 0, 2500, 0, 0),     0, SOL_SOCKET,  SO_RCVTIMEO, 0),
    SET(1, vx_set_sock_attr(fd, 0, 0, 0, 7000, 0),     0, SOL_SOCKET,  SO_SNDBUF, 14000),
    SET(1, vx_set_sock_attr(fd, 0, 0, 0, 0, 7000),     0, SOL_SOCKET,  SO_RCVBUF, 14000),
    SET(1, vx_set_sock_attr(fd, 1, -1, 4000, 0, 7000), -1, SOL_SOCKET, SO_RCVBUF, 14000),
    SET(1, vx_set_sock_nodelay(fd),                    0, IPPROTO_TCP, TCP_NODELAY, 1),
    SET(1, vx_set_sock_keepalive(fd),                  0, SOL_SOCKET,  SO_KEEPALIVE, 1),
    SET(1, vx_sock_set_linger(fd),                     0, SOL_SOCKET,  SO_LINGER, 1),
    SET(1, (vx_sock_set_linger(fd), vx_sock_unset_linger(fd)), 0, SOL_SOCKET, SO_LINGER, 0),
    SET(2, vx_set_sock_boardcast(fd),                  0, SOL_SOCKET,  SO_BROADCAST, 1),
    SET(2, vx_set_sock_multicast_noloop(fd),           0, IPPROTO_IP,  IP_MULTICAST_LOOP, 0),
    SET(2, vx_sock_bind_interface(fd, "lo"),           0, SOL_SOCKET,  SO_TYPE, SOCK_DGRAM),
    SET(2, vx_sock_bind_interface(fd, "a-name-of-20-letters"), -1, SOL_SOCKET, SO_TYPE, SOCK_DGRAM),
};
// clang-format on

TEST_F(NetSocket, OptionsAreReadBack)
{
    for (const auto &c : options) {
        int fd = vx_create_sock(c.kind);
        EXPECT_EQ(c.set(fd), c.result) << c.call;
        EXPECT_EQ(read_option(fd, c.level, c.option), c.value) << c.call;
        vx_close_socket(&fd);
    }
}

TEST_F(NetSocket, SelectReportsTheFirstOfTheLowestMode)
{
    int list[] = {0, -1, -1, -1, FD_SETSIZE}; // two that stand for no socket, two, one too many
    int peers[2];
    connect_pair(VX_SOCK_DATAGRAM, &list[2], &peers[0]);
    connect_pair(VX_SOCK_DATAGRAM, &list[3], &peers[1]);
    EXPECT_EQ(vx_select(list, 4, 3, 5), 0) << "writable reported though readable asked";
    ASSERT_EQ(send(peers[1], "x", 1, 0), 1);
    EXPECT_EQ(vx_select(list, 4, 9, 5), list[3] | 0x10000) << "only the first descriptor seen";
    ASSERT_EQ(send(peers[0], "x", 1, 0), 1);
    EXPECT_EQ(vx_select(list, 4, 1, 5), list[2] | 0x10000) << "second reported before first";
    EXPECT_EQ(vx_select(list, 4, 6, 5), list[2] | 0x20000) << "exceptional though writable asked";
    EXPECT_EQ(vx_select(list, 4, 4, 5), 0) << "readable counts as exceptional";
    EXPECT_EQ(vx_select(list, 4, 8, 5), 0) << "no mode, yet a report";
    for (const int limit_ms : {1500, 0}) {
        script_calls({EINTR, GIVE_NOTHING});
        EXPECT_EQ(vx_select(list, 4, 1, limit_ms), 0);
        EXPECT_EQ(seen.waits.front(), limit_ms > 0 ? 1500000 : -1);
        EXPECT_EQ(seen.waits.back(), limit_ms > 0 ? 750000 : -1) << "after a signal";
    }
    script_calls({EBADF});
    EXPECT_EQ(vx_select(list, 4, 1, 5), -1);
    close_all(&list[2], &list[3], &peers[0], &peers[1]);
}

/* "twofaces" is ::1, then 127.0.0.1; both connects go through every row. */
TEST_F(NetSocket, ConnectsToTheFirstAnswerThatTakesIt)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    const char *none = no_host.c_str();
    // clang-format off
    const struct {
        const char *fault, *host; int on_ipv6; // everybody listens on IPv4
        const char *local; std::vector<int> calls; int family; unsigned failed_sockets;
    } cases[] = {
        {"second answer not tried", "twofaces", 0, nullptr,     {},               AF_INET,  0},
        {"last answer wins",        "twofaces", 1, nullptr,     {},               AF_INET6, 0},
        {"no pause, or no next",    "twofaces", 1, nullptr,     {EMFILE},         AF_INET,  1},
        {"no pause after the last", "twofaces", 1, nullptr,     {EMFILE, EMFILE}, 0,        2},
        {"bind failure hidden",     "twofaces", 1, "127.0.0.1", {},               AF_INET,  0},
        {"good bind ends attempt",  "twofaces", 1, "::1",       {},               AF_INET6, 0},
        {"unknown host of ours",    "twofaces", 1, none,        {},               0,        0},
        {"unknown host",            none,       1, nullptr,     {},               0,        0},
        {"no host",                 nullptr,    1, nullptr,     {},               0,        0},
    };
    // clang-format on
    for (const auto &c : cases) {
        for (const bool noblock : {false, true}) {
            SCOPED_TRACE(std::string(c.fault) + (noblock ? ", not blocking" : ", blocking"));
            int on_ipv6 = c.on_ipv6 != 0 ? vx_tcp_listen("::1", "8080", nullptr) : -1;
            int on_ipv4 = vx_tcp_listen(nullptr, "8080", nullptr);
            const char *local = c.local != nullptr ? "8081" : nullptr;
            script_calls(c.calls);
            int fd = noblock ? vx_tcp_noblock_connect(c.local, local, c.host, "8080", 2000)
                             : vx_tcp_block_connect(c.local, local, c.host, "8080");
            EXPECT_EQ(seen.slept_s, c.failed_sockets * (noblock ? 3 : 1));
            EXPECT_EQ(fd > 0 ? read_option(fd, SOL_SOCKET, SO_DOMAIN) : 0, c.family);
            if (fd > 0) {
                EXPECT_EQ(read_option(fd, IPPROTO_TCP, TCP_NODELAY), noblock ? 1 : 0);
                EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, noblock);
                EXPECT_EQ(vx_get_sock_port(fd) == 8081, local != nullptr);
                EXPECT_EQ(vx_sock_set_linger(fd), 0); // its port is free again at once
            }
            close_all(&fd, &on_ipv6, &on_ipv4);
        }
    }
    EXPECT_EQ(vx_tcp_noblock_connect(nullptr, nullptr, "twofaces", "8080", 2500), -1) << "refused";
    script_calls({PASS, PASS, EINTR, GIVE_NOTHING, PASS, PASS, GIVE_NOTHING}); // both are silent
    EXPECT_EQ(vx_tcp_noblock_connect(nullptr, nullptr, "twofaces", "8080", 2500), -1);
    EXPECT_EQ(seen.waits, (std::vector<long>{2500000, 1250000, 625000})) << "time not shared";

    int on_ipv6 = vx_tcp_listen("::1", "8080", nullptr);
    script_calls({PASS, EINTR, EINTR, PASS});
    int fd = vx_tcp_block_connect(nullptr, nullptr, "twofaces", "8080");
    EXPECT_EQ(vx_tcp_block_send(fd, "a", 1), 1) << "given up after a signal";
    EXPECT_TRUE(seen.waits.empty()) << "select would refuse a descriptor of 1024 or more";
    close_all(&fd, &on_ipv6);
}

TEST_F(NetSocket, AcceptsWithinTheLimit)
{
    int listening = vx_tcp_listen(nullptr, "0", nullptr);
    const std::string port = std::to_string(vx_get_sock_port(listening));
    timeval limit = {0, 0};
    EXPECT_EQ(vx_tcp_noblock_accept(listening, nullptr, nullptr, &limit), -1) << "waited for none";
    int client = vx_tcp_block_connect(nullptr, nullptr, "127.0.0.2", port.c_str());
    EXPECT_GT(client, 0) << "does not listen on every local address";
    limit = {2, 0};
    script_calls({EINTR, PASS, ECONNABORTED, ECONNABORTED, PASS});
    sockaddr_storage peer = {};
    socklen_t len = sizeof(peer);
    int fd = vx_tcp_noblock_accept(listening, reinterpret_cast<sockaddr *>(&peer), &len, &limit);
    EXPECT_NE(peer.ss_family, 0);
    EXPECT_LE(limit.tv_sec, 1) << "the caller's limit is not counted down";
    script_calls({ECONNABORTED, EINTR});
    EXPECT_EQ(vx_tcp_block_accept(listening, nullptr, nullptr), -1);
    close_all(&fd, &client, &listening);
}

TEST_F(NetSocket, PathsReachTheLatestServer)
{
    const std::string name = "/tmp/" + std::string(115, 'a');
    const char *path = name.c_str();
    const std::string file = name.substr(0, 107);
    std::ofstream(file) << "a plain file in the way";
    int first = vx_create_local_tcp_server(path);
    int second = vx_create_local_tcp_server(path);
    EXPECT_TRUE(std::filesystem::is_socket(file)) << "cut elsewhere than after 107";
    int client = vx_local_tcp_connect(path);
    timeval limit = {1, 0};
    int accepted = vx_tcp_noblock_accept(second, nullptr, nullptr, &limit);
    EXPECT_GT(accepted, 0);
    int server = vx_create_local_udp_server(path);
    int sender = vx_create_sock(4);
    char buf[16];
    EXPECT_EQ(vx_local_udp_send(sender, path, "abcde", 5), 5);
    EXPECT_EQ(vx_local_udp_recv(server, buf, 3), 3);
    EXPECT_EQ(vx_local_udp_send(sender, path, "", 0), 0);
    EXPECT_EQ(vx_local_udp_recv(server, buf, 0), 0);
    script_calls({SHORT});
    EXPECT_EQ(vx_local_udp_send(sender, path, "abcde", 5), -1) << "sent in part";
    vx_close_socket(&server);
    EXPECT_EQ(vx_local_udp_send(sender, path, "abcde", 5), -1) << "nobody there";
    close_all(&client, &first, &second, &accepted, &sender);
}
