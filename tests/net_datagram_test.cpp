/* Readiness, datagrams and addresses: refusals, what stays in the socket, what is printed. */
#include <algorithm>
#include <cerrno>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetDatagram = NetTest;

TEST_F(NetDatagram, RefusesBadArguments)
{
    char buf[64] = {};
    const sockaddr_in to = loopback(11000);
    const int nothing[] = {0, -1, -1000};
    const int too_large = FD_SETSIZE;
    for (int fd : nothing) {
        EXPECT_EQ(vx_close_socket(&fd) + vx_set_sock_noblock(fd) + vx_set_sock_block(fd), -3);
        EXPECT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0) + vx_udp_send(fd, buf, 1, &to), -1);
    }
    for (const int count : {-1, 0, 3})
        EXPECT_EQ(vx_select(nothing, count, 1, 0), -1) << count;
    EXPECT_EQ(vx_select(nullptr, 1, 1, 0) + vx_select(&too_large, 1, 1, 1), -2);
    EXPECT_TRUE(seen.waits.empty()) << "waited for nothing";
    for (auto *receive : {vx_udp_recv, vx_udp_recv2}) {
        EXPECT_EQ(receive(1, nullptr, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 0, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 63, 64, nullptr, nullptr), -1) << "more wanted than fits";
    }
    EXPECT_EQ(vx_close_socket(nullptr) + vx_udp_send(1, nullptr, 1, &to), -1);
    EXPECT_EQ(vx_udp_send(1, buf, 0, &to) + vx_udp_send(1, buf, 1, nullptr), 0);
    for (const int port : {-1, 1023, 65536})
        EXPECT_EQ(vx_udp_send_data("127.0.0.1", port, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data(nullptr, 11000, buf, 1), -1);
    for (const bool is_null : {true, false})
        EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, is_null ? nullptr : buf, is_null), -1);
}

/* Two sockets, first and second of the list, behind descriptors that stand for none. */
TEST_F(NetDatagram, SelectReportsTheFirstOfTheLowestMode)
{
    // clang-format off
    static const struct {
        const char *fault; int first_has, second_has, mode, winner, flag; // winner 0: neither
    } cases[] = {
        {"second reported before first",            1, 1, 1, 1, 0x10000},
        {"only the first descriptor seen",          0, 1, 1, 2, 0x10000},
        {"writable reported though readable asked", 0, 0, 3, 0, 0},
        {"writable with a wrong flag",              0, 0, 2, 1, 0x20000},
        {"exceptional though a lower bit asked",    1, 0, 6, 1, 0x20000},
        {"readable counts as exceptional",          1, 1, 4, 0, 0},
        {"a bit beyond the three counts",           1, 0, 9, 1, 0x10000},
        {"no mode, yet a report",                   1, 1, 8, 0, 0},
    };
    // clang-format on
    int list[] = {0, -1, -1, -1};
    int peers[2];
    connect_pair(2, &list[2], &peers[0]);
    connect_pair(2, &list[3], &peers[1]);
    for (const auto &c : cases) {
        ASSERT_EQ(c.first_has != 0 ? send(peers[0], "x", 1, 0) : 1, 1);
        ASSERT_EQ(c.second_has != 0 ? send(peers[1], "x", 1, 0) : 1, 1);
        const int expected = c.winner != 0 ? list[c.winner + 1] | c.flag : 0;
        EXPECT_EQ(vx_select(list, 4, c.mode, 5), expected) << c.fault;
        (void)(received(list[2]) + received(list[3])); // leave nothing for the next row
    }
    for (const int limit_ms : {1500, 0, -1}) {
        script_calls({EINTR, GIVE_NOTHING});
        EXPECT_EQ(vx_select(list, 4, 1, limit_ms), 0);
        EXPECT_EQ(seen.waits.front(), limit_ms > 0 ? 1500000 : -1);
        EXPECT_EQ(seen.waits.back(), limit_ms > 0 ? 750000 : -1) << "after a signal";
    }
    const int closed = list[2];
    close_all({&list[2], &list[3], &peers[0], &peers[1]});
    EXPECT_EQ(vx_select(&closed, 1, 1, 5), -1);
}

TEST_F(NetDatagram, OversizedDatagramStays)
{
    int fd;
    int peer;
    connect_pair(2, &fd, &peer);
    char buf[100] = {};
    sockaddr_in from[2] = {};
    socklen_t from_len = 4; // room for less than an address: nothing beyond may be written
    for (const size_t size : {100, 64, 32, 32, 0})
        ASSERT_EQ(send(peer, buf, size, 0), static_cast<ssize_t>(size));
    CaptureStdout();
    for (int round = 0; round < 2; round++)
        EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), -1);
    const std::string printed = "socket buffer len[100] > bufSize[64] error\n";
    EXPECT_EQ(GetCapturedStdout(), printed + printed);
    EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 10, nullptr, nullptr), 10);
    EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), 64);
    EXPECT_EQ(vx_udp_recv(fd, buf, 64, 64, from, &from_len), 64);
    EXPECT_EQ(ntohs(from[0].sin_port), vx_get_sock_port(peer));
    EXPECT_EQ(from[0].sin_addr.s_addr, 0U) << "room at the address forgotten";
    EXPECT_EQ(from_len, sizeof(sockaddr_in));
    for (int round = 0; round < 2; round++) // an empty one, and nothing left
        EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 0, nullptr, nullptr), 0);
    close_all({&fd, &peer});
}

TEST_F(NetDatagram, AddressesAndTexts)
{
    // clang-format off
    const struct { const char *fault, *text; unsigned ip; int size; const char *out; } rows[] = {
        {"network byte order kept",   "127.0.0.1",       0x7F000001, 16, "127.0.0.1"},
        {"longest text does not fit", "192.168.100.200", 0xC0A864C8, 16, "192.168.100.200"},
        {"cut instead of empty",      "192.168.100.200", 0xC0A864C8, 15, ""},
        {"name not looked up",        "localhost",       0x7F000001,  1, ""},
    };
    // clang-format on
    for (const auto &c : rows) {
        EXPECT_EQ(vx_ip_a2n(c.text), c.ip) << c.fault;
        std::string buf(20, '#');
        EXPECT_EQ(vx_ip_n2a(c.ip, buf.data(), -1) + vx_ip_n2a(c.ip, buf.data(), c.size), 0);
        EXPECT_EQ(std::count(buf.begin(), buf.end(), '#'), 20 - c.size) << c.fault;
        EXPECT_STREQ(buf.data(), c.out) << c.fault;
    }
    EXPECT_EQ(vx_ip_n2a(1, nullptr, 16), -1);
    EXPECT_EQ(vx_ip_a2n(nullptr), 0xFFFFFFFF);
    CaptureStdout();
    EXPECT_EQ(vx_ip_a2n(no_host.c_str()), 0xFFFFFFFF);
    script_calls({PASS, EINTR, EACCES, EMFILE});
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, "abc", 3), 0) << "tried, but not sent";
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, "abc", 3), -1);
    EXPECT_EQ(GetCapturedStdout(), "getaddrinfo error: Name or service not known\n"
                                   "send data error:Permission denied\n"
                                   "send create sock error Too many open files\n");
}
