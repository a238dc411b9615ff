/* Stream sockets: what a listen, a connect and an accept make of each answer of the resolver. */
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetStream = NetTest;

TEST_F(NetStream, ListensWithTheBacklogOfTheEnvironment)
{
    for (const std::string backlog : {"1024", "5"}) {
        ASSERT_EQ(backlog == "5" ? setenv("LISTENQ", "5", 1) : unsetenv("LISTENQ"), 0);
        CaptureStdout();
        script_calls({PASS, EOPNOTSUPP});
        socklen_t len = 0;
        int fd = vx_tcp_listen("127.0.0.1", "0", &len);
        EXPECT_GT(fd, 0) << "not returned after a refused listen";
        EXPECT_EQ(len, sizeof(sockaddr_in));
        EXPECT_EQ(Listen(0, 7) + Listen(-1, 7) + Listen(2, 7), -3);
        EXPECT_EQ(GetCapturedStdout(), "dbg line " + std::to_string(fd) + " " + backlog +
                                           "\ndbg line 2 " + (backlog == "5" ? "5\n" : "7\n"));
        vx_close_socket(&fd);
    }
    unsetenv("LISTENQ");
    for (const char *host : {no_host.c_str(), "192.0.2.1"}) // the latter is not of this machine
        EXPECT_EQ(vx_tcp_listen(host, "0", nullptr), -1);
    script_calls({EMFILE});
    EXPECT_EQ(vx_tcp_listen("127.0.0.1", "0", nullptr), -1);
    EXPECT_EQ(seen.slept_s, 3U);
}

/* "twofaces" is ::1, then 127.0.0.1; both connects go through every row. */
TEST_F(NetStream, ConnectsToTheFirstAnswerThatTakesIt)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    const char *none = no_host.c_str();
    const std::vector<int> twice = {EMFILE, EMFILE};
    // clang-format off
    const struct {
        const char *fault, *host; int on_ipv6, on_ipv4; // who listens
        const char *local; std::vector<int> calls; int family; unsigned failed_sockets;
    } cases[] = {
        {"second answer not tried", "twofaces", 0, 1, nullptr,     {},       AF_INET,  0},
        {"last answer wins",        "twofaces", 1, 1, nullptr,     {},       AF_INET6, 0},
        {"refusal not seen",        "twofaces", 0, 0, nullptr,     {},       0,        0},
        {"no pause, or no next",    "twofaces", 1, 1, nullptr,     {EMFILE}, AF_INET,  1},
        {"no pause after the last", "twofaces", 1, 1, nullptr,     twice,    0,        2},
        {"bind failure hidden",     "twofaces", 1, 1, "127.0.0.1", {},       AF_INET,  0},
        {"good bind ends attempt",  "twofaces", 1, 1, "::1",       {},       AF_INET6, 0},
        {"unknown host of ours",    "twofaces", 1, 1, none,        {},       0,        0},
        {"unknown host",            none,       1, 1, nullptr,     {},       0,        0},
        {"no host",                 nullptr,    1, 1, nullptr,     {},       0,        0},
    };
    // clang-format on
    for (const auto &c : cases) {
        for (const bool noblock : {false, true}) {
            SCOPED_TRACE(std::string(c.fault) + (noblock ? ", not blocking" : ", blocking"));
            int on_ipv6 = c.on_ipv6 != 0 ? vx_tcp_listen("::1", "8080", nullptr) : -1;
            int on_ipv4 = c.on_ipv4 != 0 ? vx_tcp_listen(nullptr, "8080", nullptr) : -1;
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
            close_all({&fd, &on_ipv6, &on_ipv4});
        }
    }
    EXPECT_EQ(vx_tcp_block_connect(nullptr, nullptr, "twofaces", nullptr), -1);
    script_calls({PASS, PASS, EINTR, GIVE_NOTHING, PASS, PASS, GIVE_NOTHING}); // both are silent
    EXPECT_EQ(vx_tcp_noblock_connect(nullptr, nullptr, "twofaces", "8080", 2500), -1);
    EXPECT_EQ(seen.waits, (std::vector<long>{2500000, 1250000, 625000})) << "time not shared";
}

/* With a descriptor that is too large for a set of select. */
TEST_F(NetStream, SignalsDoNotEndABlockingConnect)
{
    const rlimit enough = {FD_SETSIZE + 16, FD_SETSIZE + 16};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &enough), 0);
    int listening = vx_tcp_listen("127.0.0.1", "8080", nullptr);
    std::vector<int> taken;
    do {
        taken.push_back(dup(listening));
    } while (taken.back() < FD_SETSIZE - 1);
    script_calls({PASS, EINTR, EINTR, PASS});
    int fd = vx_tcp_block_connect(nullptr, nullptr, "127.0.0.1", "8080");
    EXPECT_GE(fd, FD_SETSIZE);
    EXPECT_EQ(vx_tcp_block_send(fd, "a", 1), 1);
    for (int &descriptor : taken)
        vx_close_socket(&descriptor);
    close_all({&fd, &listening});
}

TEST_F(NetStream, AcceptsWithinTheLimit)
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
    script_calls({});
    for (const int refused : {0, -1, FD_SETSIZE}) // the latter does not fit a set of select
        EXPECT_EQ(vx_tcp_noblock_accept(refused, nullptr, nullptr, &limit), -1);
    EXPECT_EQ(vx_tcp_noblock_accept(listening, nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(seen.waits.empty());
    close_all({&fd, &client, &listening});
}
