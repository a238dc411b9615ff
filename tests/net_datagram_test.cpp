/* Datagram sockets against real peers on loopback: selectors, readiness, retries, addresses. */
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class NetDatagram : public NetTest
{
};

static void send_to(int fd, int port, const std::string &data)
{
    const sockaddr_in to = loopback(port);
    ASSERT_EQ(sendto(fd, data.data(), data.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                     sizeof(to)),
              static_cast<ssize_t>(data.size()));
}

static int socket_option(int fd, int option)
{
    int value = -1;
    socklen_t len = sizeof(value);
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &value, &len), 0);
    return value;
}

TEST_F(NetDatagram, SelectorPicksFamilyAndKind)
{
    static const struct {
        const char *fault;
        int kind, family, type;
    } cases[] = {
        {"0 taken for local", 0, AF_INET, SOCK_DGRAM},
        {"sign of an odd number lost", -1, AF_INET, SOCK_STREAM},
        {"range one short at -2", -2, AF_INET, SOCK_DGRAM},
        {"kinds 1 and 2 the wrong way", 1, AF_INET, SOCK_STREAM},
        {"range one short at 2", 2, AF_INET, SOCK_DGRAM},
        {"range one long at 3", 3, AF_UNIX, SOCK_STREAM},
        {"local kind ignores parity", 4, AF_UNIX, SOCK_DGRAM},
        {"range one long at -3", -3, AF_UNIX, SOCK_STREAM},
    };
    for (const auto &c : cases) {
        int fd = vx_create_sock(c.kind);
        EXPECT_EQ(socket_option(fd, SO_DOMAIN), c.family) << c.fault;
        EXPECT_EQ(socket_option(fd, SO_TYPE), c.type) << c.fault;
        EXPECT_EQ(vx_close_socket(&fd), 0);
        EXPECT_EQ(fd, -1) << "variable keeps a closed descriptor";
        EXPECT_EQ(vx_close_socket(&fd), -1) << "closed twice";
    }
}

TEST_F(NetDatagram, RefusesWhatIsNoSocket)
{
    char buf[64] = {};
    int zero = 0;
    const sockaddr_in to = loopback(11000);
    const int nothing[] = {0, -1, -1000};
    int too_large = FD_SETSIZE;
    EXPECT_EQ(vx_close_socket(nullptr), -1);
    EXPECT_EQ(vx_close_socket(&zero), -1);
    EXPECT_EQ(zero, 0);
    for (const int fd : nothing) {
        EXPECT_EQ(vx_set_sock_noblock(fd), -1);
        EXPECT_EQ(vx_set_sock_block(fd), -1);
        EXPECT_EQ(vx_udp_send(fd, buf, 1, &to), 0);
        EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0), -1);
    }
    EXPECT_EQ(vx_select(nothing, 3, 1, 0), -1);
    EXPECT_EQ(vx_select(nothing, 0, 1, 0), -1);
    EXPECT_EQ(vx_select(nothing, -1, 1, 0), -1);
    EXPECT_EQ(vx_select(nullptr, 1, 1, 0), -1);
    EXPECT_EQ(vx_select(&too_large, 1, 1, 0), -1) << "written past the set";
    for (auto *receive : {vx_udp_recv, vx_udp_recv2}) {
        EXPECT_EQ(receive(1, nullptr, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 0, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, -1, 0, nullptr, nullptr), -1);
        EXPECT_EQ(receive(1, buf, 63, 64, nullptr, nullptr), -1) << "more wanted than fits";
    }
    EXPECT_EQ(vx_udp_send(1, nullptr, 1, &to), 0);
    EXPECT_EQ(vx_udp_send(1, buf, 0, &to), 0);
    EXPECT_EQ(vx_udp_send(1, buf, 1, nullptr), 0);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 1023, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 65536, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data(nullptr, 11000, buf, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, nullptr, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, buf, 0), -1);
}

/* Two sockets, first and second of the list, behind descriptors that stand for none. */
TEST_F(NetDatagram, SelectReportsTheFirstOfTheLowestMode)
{
    static const struct {
        const char *fault;
        bool first_has_data, second_has_data;
        int mode, winner, flag; // winner 0: neither
    } cases[] = {
        {"second reported before first", true, true, 1, 1, 0x10000},
        {"only the first descriptor seen", false, true, 1, 2, 0x10000},
        {"writable reported though readable asked", false, false, 3, 0, 0},
        {"writable with a wrong flag", false, false, 2, 1, 0x20000},
        {"exceptional though lower bit was asked", true, false, 6, 1, 0x20000},
        {"readable counts as exceptional", true, true, 4, 0, 0},
        {"a bit beyond the three counts", true, false, 9, 1, 0x10000},
        {"no mode, yet a report", true, true, 8, 0, 0},
    };
    for (const auto &c : cases) {
        int ports[2];
        int fds[2] = {bound_datagram_socket(&ports[0]), bound_datagram_socket(&ports[1])};
        if (c.first_has_data) send_to(fds[1], ports[0], "x");
        if (c.second_has_data) send_to(fds[0], ports[1], "x");
        const int list[] = {0, -1, fds[0], fds[1]};
        const int expected = c.winner != 0 ? fds[c.winner - 1] | c.flag : 0;
        EXPECT_EQ(vx_select(list, 4, c.mode, 5), expected) << c.fault;
        for (int &fd : fds)
            vx_close_socket(&fd);
        EXPECT_EQ(vx_select(list, 4, 1, 5), -1) << "closed descriptors";
    }
}

static volatile sig_atomic_t signals_seen;

static void count_signal(int /*signal*/)
{
    signals_seen = signals_seen + 1;
}

TEST_F(NetDatagram, SelectGoesOnAfterASignal)
{
    struct sigaction action = {};
    action.sa_handler = count_signal;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval soon = {{0, 0}, {0, 20000}};
    int port;
    int fd = bound_datagram_socket(&port);
    signals_seen = 0;
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(vx_select(&fd, 1, 1, 200), 0);
    vx_close_socket(&fd);
    EXPECT_EQ(signals_seen, 1);
}

TEST_F(NetDatagram, ReceiveRetriesAreCounted)
{
    static const struct {
        const char *fault;
        std::vector<std::string> datagrams;
        int wanted;
        std::vector<int> calls;
        int result, pause_count;
    } cases[] = {
        {"no second attempt", {"abc"}, 0, {EAGAIN, PASS}, 3, 1},
        {"a third attempt", {"abc"}, 0, {EINTR, EAGAIN}, 0, 1},
        {"reset taken for a retry", {"abc"}, 0, {ECONNRESET}, -1, 0},
        {"second failure hidden", {"abc"}, 0, {EAGAIN, ENOMEM}, -1, 1},
        {"empty datagram taken as nothing", {""}, 0, {PASS}, -1, 0},
        {"more than one datagram", {"abc", "de"}, 0, {PASS}, 3, 0},
        {"rest not asked for", {"abc", "de"}, 5, {PASS, PASS}, 5, 0},
        {"progress does not renew", {"abc", "de"}, 5, {EAGAIN, PASS, EAGAIN, PASS}, 5, 2},
        {"partial total lost", {"abc", "de"}, 5, {PASS, EINTR, EAGAIN}, 3, 1},
        {"goal overrun", {"abc", "def"}, 5, {PASS, PASS}, 5, 0},
        {"end ignored after some", {"abc", "de"}, 5, {PASS, GIVE_NOTHING}, -1, 0},
        {"failure gives the total", {"abc", "de"}, 5, {PASS, ECONNRESET}, -1, 0},
    };
    for (const auto &c : cases) {
        int port;
        int fd = bound_datagram_socket(&port);
        for (const auto &datagram : c.datagrams)
            send_to(fd, port, datagram);
        pauses = {};
        script_calls(c.calls);
        char buf[9] = "--------";
        EXPECT_EQ(vx_udp_recv(fd, buf, 8, c.wanted, nullptr, nullptr), c.result) << c.fault;
        EXPECT_EQ(scripted_calls_left(), 0) << c.fault;
        EXPECT_EQ(pauses.short_ones, c.pause_count) << c.fault;
        EXPECT_EQ(pauses.short_us, c.pause_count * 1000) << c.fault;
        const std::string expected = "abcde";
        if (c.result > 0) {
            EXPECT_EQ(std::string(buf, 5).substr(0, static_cast<size_t>(c.result)),
                      expected.substr(0, static_cast<size_t>(c.result)))
                << c.fault;
        }
        vx_close_socket(&fd);
    }
}

TEST_F(NetDatagram, OversizedDatagramStays)
{
    int port;
    int fd = bound_datagram_socket(&port);
    char buf[64];
    sockaddr_in from[2] = {};
    socklen_t from_len = 4; // room for less than an address: nothing beyond may be written
    send_to(fd, port, std::string(100, 'x'));
    for (int round = 0; round < 2; round++) {
        CaptureStdout();
        EXPECT_EQ(vx_udp_recv(fd, buf, 64, 0, nullptr, nullptr), -1);
        EXPECT_EQ(GetCapturedStdout(), "socket buffer len[100] > bufSize[64] error\n");
    }
    EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 0, nullptr, nullptr), 64);
    EXPECT_EQ(vx_udp_recv2(fd, buf, 64, 0, nullptr, nullptr), 0) << "nothing there";
    for (int i = 0; i < 2; i++)
        send_to(fd, port, std::string(32, 'x'));
    EXPECT_EQ(vx_udp_recv(fd, buf, 64, 64, from, &from_len), 64);
    EXPECT_EQ(from[0].sin_port, htons(static_cast<uint16_t>(port)));
    EXPECT_EQ(from[0].sin_addr.s_addr, 0U) << "room at the address forgotten";
    EXPECT_EQ(from_len, sizeof(sockaddr_in));
    vx_close_socket(&fd);
}

TEST_F(NetDatagram, SendRetriesAreCounted)
{
    static const struct {
        const char *fault;
        std::vector<int> calls;
        int result, pause_count;
    } cases[] = {
        {"gives up too early", {EAGAIN, EINTR, EAGAIN, PASS}, 3, 3},
        {"a fifth attempt", {EAGAIN, EAGAIN, EINTR, EAGAIN}, -1, 3},
        {"hard failure retried", {EAGAIN, EPERM}, -1, 1},
        {"zero count retried", {EAGAIN, GIVE_NOTHING}, -1, 1},
    };
    for (const auto &c : cases) {
        int port;
        int fd = bound_datagram_socket(&port);
        pauses = {};
        script_calls(c.calls);
        const sockaddr_in to = loopback(port);
        EXPECT_EQ(vx_udp_send(fd, "abc", 3, &to), c.result) << c.fault;
        EXPECT_EQ(scripted_calls_left(), 0) << c.fault;
        EXPECT_EQ(pauses.short_us, c.pause_count * 1000) << c.fault;
        char buf[8];
        EXPECT_EQ(vx_udp_recv2(fd, buf, 8, 0, nullptr, nullptr), std::max(c.result, 0)) << c.fault;
        vx_close_socket(&fd);
    }
}

TEST_F(NetDatagram, SendDataSaysWhatWentWrong)
{
    int port;
    int fd = bound_datagram_socket(&port);
    char buf[8];
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", port, "abc", 3), 0);
    EXPECT_EQ(vx_udp_recv2(fd, buf, 8, 0, nullptr, nullptr), 3);
    CaptureStdout();
    script_calls({EACCES});
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", port, "abc", 3), 0);
    EXPECT_EQ(GetCapturedStdout(), "send data error:Permission denied\n");

    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    CaptureStdout();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", port, "abc", 3), -1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(GetCapturedStdout(), "send create sock error Too many open files\n");
    vx_close_socket(&fd);
}

TEST_F(NetDatagram, AddressesAndTexts)
{
    static const struct {
        const char *fault, *text;
        uint32_t ip;
        int size;
        const char *written;
    } cases[] = {
        {"network byte order kept", "127.0.0.1", 0x7F000001, 16, "127.0.0.1"},
        {"longest text does not fit", "192.168.100.200", 0xC0A864C8, 16, "192.168.100.200"},
        {"cut instead of empty", "192.168.100.200", 0xC0A864C8, 15, ""},
        {"one byte to write", "1.2.3.4", 0x01020304, 1, ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vx_ip_a2n(c.text), c.ip) << c.fault;
        std::array<char, 20> buf;
        buf.fill('#');
        EXPECT_EQ(vx_ip_n2a(c.ip, buf.data(), c.size), 0) << c.fault;
        EXPECT_STREQ(buf.data(), c.written) << c.fault;
        EXPECT_EQ(std::count(buf.begin(), buf.end(), '#'), 20 - c.size) << "not cleared to its end";
    }
    char untouched[] = "#";
    EXPECT_EQ(vx_ip_n2a(1, nullptr, 16), -1);
    EXPECT_EQ(vx_ip_n2a(1, untouched, -1), 0);
    EXPECT_STREQ(untouched, "#");
    EXPECT_EQ(vx_ip_a2n(nullptr), 0xFFFFFFFF);
    EXPECT_EQ(vx_ip_a2n("localhost"), 0x7F000001U);
    const std::string too_long(70, 'a'); // no label is that long: fails before anybody is asked
    CaptureStdout();
    EXPECT_EQ(vx_ip_a2n(too_long.c_str()), 0xFFFFFFFF);
    EXPECT_EQ(GetCapturedStdout(), "getaddrinfo error: Name or service not known\n");
}
