/* Sockets, readiness, datagrams and addresses: selectors, refusals, what stays in the socket. */
#include <algorithm>
#include <array>
#include <cerrno>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

using NetDatagram = NetTest;

TEST_F(NetDatagram, SelectorPicksFamilyAndKind)
{
    static const int kinds[][3] = {
        {0, AF_INET, SOCK_DGRAM},  {1, AF_INET, SOCK_STREAM},  {2, AF_INET, SOCK_DGRAM},
        {-2, AF_INET, SOCK_DGRAM}, {-1, AF_INET, SOCK_STREAM}, {3, AF_UNIX, SOCK_STREAM},
        {4, AF_UNIX, SOCK_DGRAM},  {-3, AF_UNIX, SOCK_STREAM},
    };
    for (const auto &[kind, family, type] : kinds) {
        int fd = vx_create_sock(kind);
        int read[2] = {};
        socklen_t len = sizeof(int);
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &read[0], &len), 0);
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_TYPE, &read[1], &len), 0);
        EXPECT_EQ(read[0], family) << kind;
        EXPECT_EQ(read[1], type) << kind;
        EXPECT_EQ(vx_close_socket(&fd), 0);
        EXPECT_EQ(fd, -1) << "variable keeps a closed descriptor";
    }
}

TEST_F(NetDatagram, RefusesBadArguments)
{
    char buf[64] = {};
    const sockaddr_in to = loopback(11000);
    const int nothing[] = {0, -1, -1000};
    const int too_large = FD_SETSIZE;
    for (int fd : nothing) {
        EXPECT_EQ(vx_close_socket(&fd), -1);
        EXPECT_EQ(vx_set_sock_noblock(fd) + vx_set_sock_block(fd), -2);
        EXPECT_EQ(vx_udp_send(fd, buf, 1, &to), 0);
        EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0), -1);
    }
    EXPECT_EQ(vx_close_socket(nullptr), -1);
    for (const int count : {-1, 0, 3})
        EXPECT_EQ(vx_select(nothing, count, 1, 0), -1) << count;
    EXPECT_EQ(vx_select(nullptr, 1, 1, 0), -1);
    EXPECT_EQ(vx_select(&too_large, 1, 1, 1), -1);
    EXPECT_TRUE(seen.waits.empty()) << "waited for nothing";
    for (auto *receive : {vx_udp_recv, vx_udp_recv2}) {
        EXPECT_EQ(receive(1, nullptr, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 0, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 63, 64, nullptr, nullptr), -1) << "more wanted than fits";
    }
    EXPECT_EQ(vx_udp_send(1, nullptr, 1, &to), 0);
    EXPECT_EQ(vx_udp_send(1, buf, 0, &to), 0);
    EXPECT_EQ(vx_udp_send(1, buf, 1, nullptr), 0);
    for (const int port : {-1, 1023, 65536})
        EXPECT_EQ(vx_udp_send_data("127.0.0.1", port, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data(nullptr, 11000, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, nullptr, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, buf, 0), -1);
}

/* Two sockets, first and second of the list, behind descriptors that stand for none. */
TEST_F(NetDatagram, SelectReportsTheFirstOfTheLowestMode)
{
    // clang-format off
    static const struct {
        const char *fault;
        bool first_has_data, second_has_data;
        int mode, winner, flag; // winner 0: neither
    } cases[] = {
        {"second reported before first",            true,  true,  1, 1, 0x10000},
        {"only the first descriptor seen",          false, true,  1, 2, 0x10000},
        {"writable reported though readable asked", false, false, 3, 0, 0},
        {"writable with a wrong flag",              false, false, 2, 1, 0x20000},
        {"exceptional though a lower bit asked",    true,  false, 6, 1, 0x20000},
        {"readable counts as exceptional",          true,  true,  4, 0, 0},
        {"a bit beyond the three counts",           true,  false, 9, 1, 0x10000},
        {"no mode, yet a report",                   true,  true,  8, 0, 0},
    };
    // clang-format on
    int list[] = {0, -1, -1, -1};
    int peers[2];
    connect_pair(2, &list[2], &peers[0]);
    connect_pair(2, &list[3], &peers[1]);
    for (const auto &c : cases) {
        ASSERT_EQ(c.first_has_data ? send(peers[0], "x", 1, 0) : 1, 1);
        ASSERT_EQ(c.second_has_data ? send(peers[1], "x", 1, 0) : 1, 1);
        const int expected = c.winner != 0 ? list[c.winner + 1] | c.flag : 0;
        EXPECT_EQ(vx_select(list, 4, c.mode, 5), expected) << c.fault;
        (void)(received(list[2]) + received(list[3])); // leave nothing for the next row
    }
    const int closed = list[2];
    close_all({&list[2], &list[3], &peers[0], &peers[1]});
    EXPECT_EQ(vx_select(&closed, 1, 1, 5), -1);
}

TEST_F(NetDatagram, SelectGoesOnAfterASignal)
{
    int fd;
    int peer;
    connect_pair(2, &fd, &peer);
    for (const int limit_ms : {1500, 0, -1}) {
        script_calls({EINTR, GIVE_NOTHING});
        EXPECT_EQ(vx_select(&fd, 1, 1, limit_ms), 0);
        EXPECT_EQ(seen.waits, limit_ms > 0 ? (std::vector<long>{1500000, 750000})
                                           : (std::vector<long>{-1, -1}));
    }
    close_all({&fd, &peer});
}

TEST_F(NetDatagram, OversizedDatagramStays)
{
    int fd;
    int peer;
    connect_pair(2, &fd, &peer);
    char buf[100] = {};
    sockaddr_in from[2] = {};
    socklen_t from_len = 4; // room for less than an address: nothing beyond may be written
    for (const size_t size : {100, 64, 32, 32})
        ASSERT_EQ(send(peer, buf, size, 0), static_cast<ssize_t>(size));
    for (int round = 0; round < 2; round++) {
        CaptureStdout();
        EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(GetCapturedStdout(), "socket buffer len[100] > bufSize[64] error\n");
    }
    EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 10, nullptr, nullptr), 10);
    EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), 64);
    EXPECT_EQ(vx_udp_recv(fd, buf, 64, 64, from, &from_len), 64);
    EXPECT_EQ(ntohs(from[0].sin_port), vx_get_sock_port(peer));
    EXPECT_EQ(from[0].sin_addr.s_addr, 0U) << "room at the address forgotten";
    EXPECT_EQ(from_len, sizeof(sockaddr_in));
    EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 0, nullptr, nullptr), 0) << "nothing left";
    close_all({&fd, &peer});
}

TEST_F(NetDatagram, SendDataSaysWhatWentWrong)
{
    static const struct {
        std::vector<int> calls;
        int result;
        const char *printed, *arrived;
    } cases[] = {
        {{PASS, EINTR, PASS}, 0, "", "abc"},
        {{PASS, EACCES}, 0, "send data error:Permission denied\n", ""},
        {{EMFILE}, -1, "send create sock error Too many open files\n", ""},
    };
    int fd = vx_create_sock(2);
    ASSERT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0) + vx_set_sock_noblock(fd), 0);
    for (const auto &c : cases) {
        CaptureStdout();
        script_calls(c.calls);
        EXPECT_EQ(vx_udp_send_data("127.0.0.1", vx_get_sock_port(fd), "abc", 3), c.result);
        EXPECT_EQ(GetCapturedStdout(), c.printed);
        EXPECT_EQ(received(fd), c.arrived);
    }
    vx_close_socket(&fd);
}

TEST_F(NetDatagram, AddressesAndTexts)
{
    // clang-format off
    static const struct {
        const char *fault, *text;
        uint32_t ip;
        int size;
        const char *written;
    } cases[] = {
        {"network byte order kept",   "127.0.0.1",       0x7F000001, 16, "127.0.0.1"},
        {"longest text does not fit", "192.168.100.200", 0xC0A864C8, 16, "192.168.100.200"},
        {"cut instead of empty",      "192.168.100.200", 0xC0A864C8, 15, ""},
        {"name not looked up",        "localhost",       0x7F000001,  1, ""},
    };
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_EQ(vx_ip_a2n(c.text), c.ip) << c.fault;
        std::array<char, 20> buf;
        buf.fill('#');
        EXPECT_EQ(vx_ip_n2a(c.ip, buf.data(), -1), 0);
        EXPECT_EQ(vx_ip_n2a(c.ip, buf.data(), c.size), 0) << c.fault;
        EXPECT_EQ(std::count(buf.begin(), buf.end(), '#'), 20 - c.size) << c.fault;
        EXPECT_STREQ(buf.data(), c.written) << c.fault;
    }
    EXPECT_EQ(vx_ip_n2a(1, nullptr, 16), -1);
    EXPECT_EQ(vx_ip_a2n(nullptr), 0xFFFFFFFF);
    CaptureStdout();
    EXPECT_EQ(vx_ip_a2n(no_host.c_str()), 0xFFFFFFFF);
    EXPECT_EQ(GetCapturedStdout(), "getaddrinfo error: Name or service not known\n");
}
