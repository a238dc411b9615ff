/* Stream sockets: what a listen, a connect and an accept make of each answer of the resolver. */
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

using NetStream = NetTest;

TEST_F(NetStream, ListensWithTheBacklogOfTheEnvironment)
{
    for (const std::string backlog : {"1024", "5"}) {
        ASSERT_EQ(backlog == "5" ? setenv("LISTENQ", "5", 1) : unsetenv("LISTENQ"), 0);
        socklen_t len = 0;
        int fd = vx_tcp_listen(nullptr, "0", &len);
        EXPECT_TRUE(len == sizeof(sockaddr_in) || len == sizeof(sockaddr_in6));
        tcp_info info = {};
        len = sizeof(info);
        EXPECT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &len), 0);
        // What it means on a listening socket; QEMU's user emulation hands out the first word only.
        if (len > sizeof(int)) {
            EXPECT_EQ(std::to_string(info.tcpi_sacked), backlog);
        }
        const std::string port = std::to_string(vx_get_sock_port(fd));
        int client = vx_tcp_block_connect(nullptr, nullptr, "127.0.0.2", port.c_str());
        EXPECT_GT(client, 0) << "does not listen on every local address";
        close_all({&fd, &client});

        CaptureStdout();
        script_calls({PASS, EOPNOTSUPP});
        fd = vx_tcp_listen("127.0.0.1", "0", nullptr);
        EXPECT_GT(fd, 0) << "not returned after a refused listen";
        EXPECT_EQ(Listen(STDIN_FILENO, 7) + Listen(-1, 7) + Listen(STDERR_FILENO, 7), -3);
        EXPECT_EQ(GetCapturedStdout(), "dbg line " + std::to_string(fd) + " " + backlog +
                                           "\ndbg line 2 " + (backlog == "5" ? "5\n" : "7\n"));
        vx_close_socket(&fd);
    }
    unsetenv("LISTENQ");
    EXPECT_EQ(vx_tcp_listen(no_host.c_str(), "0", nullptr), -1);
    EXPECT_EQ(vx_tcp_listen("192.0.2.1", "0", nullptr), -1) << "not an address of this machine";
    script_calls({EMFILE});
    EXPECT_EQ(vx_tcp_listen("127.0.0.1", "0", nullptr), -1);
    EXPECT_EQ(seen.slept_s, 3U);
}

/* The family a socket is connected over, 0 for no socket, and what the kinds of connect set. */
static int check_connection(int fd, bool noblock, bool from_8081)
{
    if (fd <= 0) return 0;
    sockaddr_storage peer = {};
    socklen_t len = sizeof(peer);
    EXPECT_EQ(getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &len), 0);
    int nodelay = 0;
    len = sizeof(nodelay);
    EXPECT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &nodelay, &len), 0);
    EXPECT_EQ(nodelay != 0, noblock);
    EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, noblock);
    EXPECT_EQ(vx_get_sock_port(fd) == 8081, from_8081);
    EXPECT_EQ(vx_sock_set_linger(fd), 0); // its port is free again at once
    return peer.ss_family;
}

/* "twofaces" is ::1, then 127.0.0.1; both connects go through every row. */
TEST_F(NetStream, ConnectsToTheFirstAnswerThatTakesIt)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    ASSERT_NO_FATAL_FAILURE(name_two_faces());
    const std::vector<int> one_fail = {EMFILE};
    const std::vector<int> two_fail = {EMFILE, EMFILE};
    // clang-format off
    const struct {
        const char *fault, *host, *service;
        bool on_ipv6, on_ipv4; // who listens
        const char *local_host; // null: no local binding
        std::vector<int> calls;
        int family; // of the connection, 0 for none
        unsigned failed_sockets;
    } cases[] = {
        {"second answer not tried", "twofaces", "8080", false, true,  nullptr, {}, AF_INET,  0},
        {"last answer wins",        "twofaces", "8080", true,  true,  nullptr, {}, AF_INET6, 0},
        {"refusal not seen",        "twofaces", "8080", false, false, nullptr, {}, 0,        0},
        {"no pause, or no next",    "twofaces", "8080", true,  true,  nullptr, one_fail,  AF_INET, 1},
        {"no pause after the last", "twofaces", "8080", true,  true,  nullptr, two_fail,  0, 2},
        {"bind failure hidden",     "twofaces", "8080", true,  true,  "127.0.0.1", {}, AF_INET,  0},
        {"good bind ends attempt",  "twofaces", "8080", true,  true,  "::1",       {}, AF_INET6, 0},
        {"unknown host of ours",    "twofaces", "8080", true,  true,  no_host.c_str(), {}, 0, 0},
        {"unknown host",       no_host.c_str(), "8080", true,  true,  nullptr, {}, 0,        0},
        {"no host",                    nullptr, "8080", true,  true,  nullptr, {}, 0,        0},
        {"no service",             "twofaces", nullptr, true,  true,  nullptr, {}, 0,        0},
    };
    // clang-format on
    for (const auto &c : cases) {
        for (const bool noblock : {false, true}) {
            SCOPED_TRACE(std::string(c.fault) + (noblock ? ", not blocking" : ", blocking"));
            int on_ipv6 = c.on_ipv6 ? vx_tcp_listen("::1", "8080", nullptr) : -1;
            int on_ipv4 = c.on_ipv4 ? vx_tcp_listen("127.0.0.1", "8080", nullptr) : -1;
            const char *local = c.local_host != nullptr ? "8081" : nullptr;
            script_calls(c.calls);
            int fd = noblock ? vx_tcp_noblock_connect(c.local_host, local, c.host, c.service, 2000)
                             : vx_tcp_block_connect(c.local_host, local, c.host, c.service);
            EXPECT_EQ(seen.slept_s, c.failed_sockets * (noblock ? 3 : 1));
            EXPECT_EQ(check_connection(fd, noblock, local != nullptr), c.family);
            close_all({&fd, &on_ipv6, &on_ipv4});
        }
    }
}

TEST_F(NetStream, ConnectSharesItsTimeAndOutlastsSignals)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    ASSERT_NO_FATAL_FAILURE(name_two_faces());
    script_calls({PASS, PASS, EINTR, GIVE_NOTHING, PASS, PASS, GIVE_NOTHING}); // both are silent
    EXPECT_EQ(vx_tcp_noblock_connect(nullptr, nullptr, "twofaces", "8080", 2500), -1);
    EXPECT_EQ(seen.waits, (std::vector<long>{2500000, 1250000, 625000}));

    int listening = vx_tcp_listen("::1", "8080", nullptr);
    script_calls({PASS, EINTR});
    int fd = vx_tcp_block_connect(nullptr, nullptr, "twofaces", "8080");
    EXPECT_EQ(vx_tcp_block_send(fd, "a", 1), 1) << "given up after a signal";
    EXPECT_EQ(seen.waits, std::vector<long>{-1});
    close_all({&fd, &listening});
}

TEST_F(NetStream, AcceptsWithinTheLimit)
{
    int listening = vx_tcp_listen("127.0.0.1", "0", nullptr);
    const std::string port = std::to_string(vx_get_sock_port(listening));
    timeval limit = {0, 0};
    EXPECT_EQ(vx_tcp_noblock_accept(listening, nullptr, nullptr, &limit), -1) << "waited for none";
    EXPECT_EQ(vx_tcp_noblock_accept(listening, nullptr, nullptr, nullptr), -1);
    int client = vx_tcp_block_connect(nullptr, nullptr, "127.0.0.1", port.c_str());
    limit = {2, 0};
    script_calls({EINTR, PASS, ECONNABORTED, ECONNABORTED, PASS});
    sockaddr_in peer = {};
    socklen_t len = sizeof(peer);
    int fd = vx_tcp_noblock_accept(listening, reinterpret_cast<sockaddr *>(&peer), &len, &limit);
    EXPECT_EQ(ntohs(peer.sin_port), vx_get_sock_port(client));
    EXPECT_LE(limit.tv_sec, 1) << "the caller's limit is not counted down";
    script_calls({ECONNABORTED, EINTR});
    EXPECT_EQ(vx_tcp_block_accept(listening, nullptr, nullptr), -1);

    rlimit files = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = files.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    int large = fcntl(listening, F_DUPFD, FD_SETSIZE); // more than a set of select holds
    ASSERT_GT(large, 0);
    script_calls({});
    for (const int refused : {0, -1, large})
        EXPECT_EQ(vx_tcp_noblock_accept(refused, nullptr, nullptr, &limit), -1);
    EXPECT_TRUE(seen.waits.empty());
    close_all({&fd, &client, &listening, &large});
}
