/* A row for each call of the socket library and its result: what is refused, what numbers and texts
 * become, what is printed. */
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

static int fd, peer, extra, zero, high = FD_SETSIZE, blocked = 7;
static char buf[17];
static const sockaddr_in to = loopback(11000);
static timeval limit = {0, 1000};
static socklen_t length;
static const char *const nowhere = "/tmp/no/such/folder";
static const char *const group = "239.1.2.3";

using NetCalls = NetTest;

/* Descriptor 0 is a connected stream with a byte to receive: a call that does not refuse it would
 * do its work there. */
TEST_F(NetCalls, Refuse)
{
    connect_pair(VX_SOCK_STREAM, &fd, &peer);
    ASSERT_EQ(dup2(fd, 0), 0);
    ASSERT_EQ(send(peer, "x", 1, 0), 1);
    CaptureStdout();
    EXPECT_EQ(vx_close_socket(nullptr), -1);
    EXPECT_EQ(vx_close_socket(&zero), -1);
    EXPECT_EQ(vx_close_socket(&(extra = dup(0))), 0);
    EXPECT_EQ(vx_close_socket(&extra), -1);
    EXPECT_EQ(vx_set_sock_noblock(0), -1);
    EXPECT_EQ(vx_select(nullptr, 1, 1, 1), -1);
    EXPECT_EQ(vx_select(&zero, 1, 1, 1), -1);
    EXPECT_EQ(vx_select(&high, 1, 1, 1), -1);
    EXPECT_EQ(vx_udp_recv(fd, buf, 0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(vx_udp_recv(fd, buf, 8, 9, nullptr, nullptr), -1);
    EXPECT_EQ(vx_udp_recv2(fd, buf, 0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(vx_udp_recv2(fd, buf, 8, 9, nullptr, nullptr), -1);
    EXPECT_EQ(vx_udp_send(0, "a", 1, &to), 0);
    EXPECT_EQ(vx_udp_send(fd, nullptr, 1, &to), 0);
    EXPECT_EQ(vx_udp_send(fd, "a", 1, nullptr), 0);
    EXPECT_EQ(vx_udp_send_data(nullptr, 11000, "a", 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 1023, "a", 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 65536, "a", 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, nullptr, 1), -1);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, "a", 0), -1);
    EXPECT_EQ(vx_ip_a2n(nullptr), 0xFFFFFFFF);
    EXPECT_EQ(vx_ip_n2a(1, nullptr, 16), -1);
    EXPECT_EQ(vx_set_sock_attr(0, 1, 0, 0, 0, 0), -1);
    EXPECT_EQ(vx_sock_set_linger(0), -1);
    EXPECT_EQ(vx_set_sock_keepalive(0), -1);
    EXPECT_EQ(vx_sock_bind_interface(fd, nullptr), -1);
    EXPECT_EQ(vx_set_sock_multi_membership(fd, nullptr, 0), -1);
    EXPECT_EQ(vx_set_sock_rm_multi_membership(fd, nullptr), -1);
    EXPECT_EQ(vx_get_sock_port(-1), -1);
    EXPECT_EQ(vx_get_sock_ip(-1), -1);
    EXPECT_EQ(Listen(0, 7), -1);
    EXPECT_EQ(vx_tcp_listen(no_host.c_str(), "0", nullptr), -1);
    EXPECT_EQ(vx_tcp_listen("192.0.2.1", "0", nullptr), -1); // not an address of this machine
    EXPECT_EQ(vx_tcp_block_recv(0, buf, 8, 0), -1);
    EXPECT_EQ(vx_tcp_block_recv(fd, buf, 0, 0), -1);
    EXPECT_EQ(vx_tcp_block_send(0, "a", 1), -1);
    EXPECT_EQ(vx_tcp_block_send(fd, "a", 0), -1);
    EXPECT_EQ(vx_tcp_noblock_recv(0, buf, 8, 0), -1);
    EXPECT_EQ(vx_tcp_noblock_recv(fd, buf, 0, 0), -1);
    EXPECT_EQ(vx_tcp_noblock_send(-1, "a", 1, &blocked, 1), 0);
    EXPECT_EQ(vx_tcp_noblock_send(fd, nullptr, 1, &blocked, 1), 0);
    EXPECT_EQ(vx_tcp_noblock_send(fd, "a", 0, &blocked, 1), 0);
    EXPECT_EQ(vx_tcp_noblock_mtu_send(0, "a", 1, 1), -1);
    EXPECT_EQ(vx_tcp_noblock_mtu_send(fd, "a", 0, 1), -1);
    EXPECT_EQ(vx_tcp_noblock_mtu_send(fd, "a", 1, 0), -1);
    EXPECT_EQ(vx_tcp_noblock_accept(0, nullptr, nullptr, &limit), -1);
    EXPECT_EQ(vx_tcp_noblock_accept(high, nullptr, nullptr, &limit), -1);
    EXPECT_EQ(vx_tcp_noblock_accept(fd, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(vx_create_local_tcp_server(nullptr), -1);
    EXPECT_EQ(vx_create_local_tcp_server(nowhere), -1);
    EXPECT_EQ(vx_local_tcp_connect(nullptr), -1);
    EXPECT_EQ(vx_local_tcp_connect(nowhere), -1);
    EXPECT_EQ(vx_local_tcp_send(0, "a", 1), -1);
    EXPECT_EQ(vx_local_tcp_send(fd, "a", 0), -1);
    EXPECT_EQ(vx_local_tcp_send(fd, "a", -1), 0);
    EXPECT_EQ(vx_local_tcp_recv(0, buf, 8), -1);
    EXPECT_EQ(vx_local_tcp_recv(fd, buf, 0), -1);
    EXPECT_EQ(vx_local_udp_send(fd, nullptr, "a", 1), -1);
    EXPECT_EQ(vx_local_udp_recv(0, buf, 8), -1);
    EXPECT_EQ(cal_chksum(nullptr, 8), 0xFFFF);
    EXPECT_EQ(vx_ping(nullptr, 1, 1), 0);
    EXPECT_EQ(vx_ping("", 1, 1), 0);
    EXPECT_EQ(vx_get_host_ip(nullptr), -1);
    EXPECT_EQ(vx_get_wan_ip(nullptr), -1);
    reverse(nullptr);
    vx_itoa(1, nullptr);
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_TRUE(seen.waits.empty()) << "a refused call waited";
    EXPECT_EQ(blocked, 7) << "a refused call touched the flag";
    EXPECT_EQ(received(fd), "x") << "a refused call took what was there";
    EXPECT_EQ(received(peer), "") << "a refused call sent";
    close_all(&fd, &peer);
    fd = vx_create_sock(VX_SOCK_STREAM); // only TCP could do without a delay
    ASSERT_EQ(dup2(fd, 0), 0);
    EXPECT_EQ(vx_set_sock_nodelay(0), -1);
    close_all(&fd);
}

static std::string text_of(uint32_t ip, int size)
{
    std::string text(17, '#');
    EXPECT_EQ(vx_ip_n2a(ip, text.data(), size), 0);
    return text;
}

TEST_F(NetCalls, TurnBytesNumbersAndTexts)
{
    EXPECT_EQ(ntohs(cal_chksum("\x00\x01\xf2\x03\xf4\xf5\xf6\xf7", 8)), 0x220d); // from RFC 1071
    EXPECT_EQ(ntohs(cal_chksum("\x00\x01\xf2\x03\xf4", 5)), 0x19fa);
    EXPECT_EQ(ntohs(cal_chksum("\xff\xff\xff\xff\x01\x00", 6)), 0xfeff);
    EXPECT_EQ(vx_ip_a2n("192.168.100.200"), 0xC0A864C8);
    EXPECT_EQ(vx_ip_a2n("localhost"), 0x7F000001);
    EXPECT_EQ(vx_get_host_ip("localhost"), static_cast<int>(htonl(INADDR_LOOPBACK)));
    EXPECT_EQ(text_of(0xC0A864C8, 16), std::string("192.168.100.200\0#", 17));
    EXPECT_EQ(text_of(0xC0A864C8, 15), std::string(15, '\0') + "##") << "cut instead of empty";
    EXPECT_EQ(text_of(0xC0A864C8, 0), std::string(17, '#'));
    for (const int value : {INT_MIN, INT_MAX, -10, 7, 0}) {
        vx_itoa(value, buf);
        EXPECT_EQ(buf, std::to_string(value));
    }
}

TEST_F(NetCalls, ReadBackWhatTheySet)
{
    fd = vx_create_sock(VX_SOCK_DATAGRAM);
    EXPECT_EQ(vx_set_sock_noblock(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(vx_set_sock_block(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(vx_bind_sock(fd, 0x7F000002, 11000 + 65536), 0);
    EXPECT_EQ(vx_get_sock_port(fd), 11000);
    EXPECT_EQ(vx_get_sock_ip(fd), static_cast<int>(htonl(0x7F000002)));
    close_all(&fd);
}

TEST_F(NetCalls, PrintMessages)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to set a route in";
    CaptureStdout();
    const int next = fd = dup(0); // tells the descriptor that comes next
    close_all(&fd);
    EXPECT_EQ(vx_ip_a2n(no_host.c_str()), 0xFFFFFFFF);
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 1024, "a", 1), 0);
    script_calls({PASS, EACCES});
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 65535, "a", 1), 0);
    script_calls({EMFILE, EMFILE, EMFILE, EMFILE});
    EXPECT_EQ(vx_udp_send_data("127.0.0.1", 11000, "a", 1), -1);
    EXPECT_EQ(vx_create_local_tcp_server("/tmp/a"), -1);
    EXPECT_EQ(vx_local_tcp_connect("/tmp/a"), -1);
    EXPECT_EQ(vx_tcp_listen("127.0.0.1", "0", nullptr), -1);
    EXPECT_EQ(seen.slept_s, 3U);
    script_calls({PASS, EOPNOTSUPP});
    EXPECT_EQ(vx_create_local_tcp_server("/tmp/a"), -1);
    ASSERT_EQ(setenv("LISTENQ", "5", 1), 0);
    script_calls({PASS, EOPNOTSUPP});
    EXPECT_EQ(fd = vx_tcp_listen("::1", "0", &length), next) << "bound, but not returned";
    EXPECT_EQ(length, sizeof(sockaddr_in6));
    ASSERT_EQ(unsetenv("LISTENQ"), 0);
    close_all(&fd);
    fd = vx_create_sock(VX_SOCK_DATAGRAM);
    EXPECT_EQ(vx_set_sock_multi_membership(fd, "no group", htonl(INADDR_LOOPBACK)), -1);
    EXPECT_EQ(vx_set_sock_multi_membership(fd, group, htonl(INADDR_LOOPBACK)), 0);
    // A group can be left only on the interface that a route names for it.
    ASSERT_EQ(system("ip route add 224.0.0.0/4 dev lo"), 0); // NOLINT(cert-env33-c)
    EXPECT_EQ(vx_set_sock_rm_multi_membership(fd, group), 0);
    EXPECT_EQ(vx_set_sock_rm_multi_membership(fd, group), -1);
    close_all(&fd);
    const std::string line = "dbg line " + std::to_string(next);
    EXPECT_EQ(GetCapturedStdout(),
              "getaddrinfo error: Name or service not known\nsend data error:Permission denied\n"
              "send create sock error Too many open files\n" +
                  line + " 1024\n" + line + " 5\n" +
                  "setsockopt IP_DROP_MEMBERSHIP errno:99 info:Cannot assign requested address\n");
}
