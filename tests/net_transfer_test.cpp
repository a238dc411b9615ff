/* Every send and receive of the socket library, datagram, stream and local: how often it tries, how
 * long it pauses, and what it makes of signals, and of a peer that is gone or never reads. */
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/time.h>
#include <tuple>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetTransfer = NetTest;

static int fd, peer, blocked;
static char buf[16];
static sockaddr_in peer_addr;

// clang-format off
/* A call to try on sockets of a kind (1 stream, 2 datagram), and the length of its pauses. */
struct CALL_T { const char *name; int kind; long pause_us; int (*run)(); };
#define CALL(name, kind, pause_us, expression) \
    static const CALL_T name = {#name, kind, pause_us, [] { return expression; }};

CALL(udp_one,     2, 1000,  vx_udp_recv(fd, buf, 8, 0, nullptr, nullptr))
CALL(udp_five,    2, 1000,  vx_udp_recv(fd, buf, 8, 5, nullptr, nullptr))
CALL(udp_once,    2, 0,     vx_udp_recv2(fd, buf, 8, 0, nullptr, nullptr))
CALL(udp_send,    2, 1000,  vx_udp_send(fd, "abcde", 5, &peer_addr))
CALL(block_any,   1, 0,     vx_tcp_block_recv(fd, buf, 8, 0))
CALL(block_three, 1, 0,     vx_tcp_block_recv(fd, buf, 8, 3))
CALL(block_nine,  1, 0,     vx_tcp_block_recv(fd, buf, 4, 9))
CALL(block_send,  1, 0,     vx_tcp_block_send(fd, "abcde", 5))
CALL(recv_any,    1, 10000, vx_tcp_noblock_recv(fd, buf, 8, 0))
CALL(recv_five,   1, 10000, vx_tcp_noblock_recv(fd, buf, 8, 5))
CALL(recv_nine,   1, 10000, vx_tcp_noblock_recv(fd, buf, 4, 9))
CALL(send_on,     1, 1000,  vx_tcp_noblock_send(fd, "abcde", 5, &blocked, 1))
CALL(send_once,   1, 1000,  vx_tcp_noblock_send(fd, "abcde", 5, &blocked, 0))
CALL(pieces,      1, 1000,  vx_tcp_noblock_mtu_send(fd, "abcde", 5, 3))
CALL(local_send,  1, 0,     vx_local_tcp_send(fd, "abcde", 5))
CALL(local_recv,  1, 0,     vx_local_tcp_recv(fd, buf, 8))
// clang-format on

/* The first outcome so many times, then the rest. */
static std::vector<int> times(int count, int outcome, std::vector<int> rest = {})
{
    rest.insert(rest.begin(), static_cast<size_t>(count), outcome);
    return rest;
}

/* The peer has sent "abc" and "de", as two datagrams or as one stream; a send offers "abcde". */
TEST_F(NetTransfer, AttemptsAreCounted)
{
    const auto half_way = times(499, EAGAIN, times(1, SHORT, times(500, EINTR, {PASS})));
    const auto two_pieces = times(1000, EAGAIN, times(1, PASS, times(1000, EINTR, {PASS})));
    const auto renewing = times(9, EINTR, times(1, SHORT, times(992, EINTR)));
    // clang-format off
    const struct {
        const char *fault; const CALL_T &call; std::vector<int> script;
        int result; int pauses = 0; int flag = 0;
    } cases[] = {
        {"udp: not two attempts",           udp_one,     {EINTR, EAGAIN},                 0, 1},
        {"udp: second failure hidden",      udp_one,     {EAGAIN, ENOMEM},               -1, 1},
        {"udp: an empty one is nothing",    udp_one,     {GIVE_NOTHING},                 -1},
        {"wanted: progress does not renew", udp_five,    {EAGAIN, PASS, EAGAIN, PASS},    5, 2},
        {"wanted: partial total lost",      udp_five,    {PASS, EINTR, EAGAIN},           3, 1},
        {"wanted: end ignored after some",  udp_five,    {PASS, GIVE_NOTHING},           -1},
        {"once: retried",                   udp_once,    {EINTR},                         0},
        {"udp send: not four attempts",     udp_send,    times(4, EAGAIN),               -1, 3},
        {"udp send: progress renews",       udp_send,    times(1, SHORT, times(4, EINTR)), -1, 3},
        {"udp send: hard failure retried",  udp_send,    {EAGAIN, EPERM},                -1, 1},
        {"block recv: wish ignored",        block_three, {PASS},                          3},
        {"block recv: buffer overrun",      block_nine,  {PASS},                          4},
        {"block recv: signal a failure",    block_any,   {EINTR},                         0},
        {"block send: not three short",     block_send,  times(3, SHORT),                 3},
        {"block send: signal starts anew",  block_send,  {SHORT, SHORT, EINTR, SHORT, PASS}, 5},
        {"block send: full socket retried", block_send,  {SHORT, EAGAIN},                -1},
        {"recv: not 500 pauses",            recv_any,    times(501, EINTR),               0, 500},
        {"recv: asks on after some",        recv_any,    {SHORT},                         1},
        {"recv wanted: pauses not renewed", recv_five,   half_way,                        5, 999},
        {"recv wanted: buffer overrun",     recv_nine,   {SHORT, PASS},                   4},
        {"send: not 1000, or renewed",      send_on,     renewing,                     -1, 1000, 1},
        {"send: hard failure flagged",      send_on,     {EAGAIN, EPIPE},                -1, 1},
        {"send once: retried, or flagged",  send_once,   {SHORT, EAGAIN},                -1},
        {"pieces: not 1000 for each",       pieces,      two_pieces,                      5, 2000},
        {"pieces: a 1001st pause",          pieces,      times(1001, EAGAIN),            -1, 1000},
        {"pieces: rest of one not sent",    pieces,      {SHORT, SHORT, PASS, PASS},      5},
        {"local send: not two writes",      local_send,  {SHORT, SHORT},                  2},
        {"local send: first count stands",  local_send,  {SHORT, EAGAIN},                -1},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fault);
        connect_pair(c.call.kind, &fd, &peer);
        peer_addr = loopback(vx_get_sock_port(peer));
        ASSERT_EQ(send(peer, "abc", 3, 0) + send(peer, "de", 2, 0), 5);
        memset(buf, 0, sizeof(buf));
        blocked = 0;
        script_calls(c.script);
        EXPECT_EQ(c.call.run(), c.result);
        EXPECT_EQ(seen.paused_us, c.pauses * c.call.pause_us);
        EXPECT_EQ(blocked, c.flag);
        script_calls({});
        const std::string moved = buf[0] != 0 ? buf : received(peer);
        EXPECT_EQ(c.result > 0 ? moved : "", std::string("abcde").substr(0, std::max(c.result, 0)));
        close_all({&fd, &peer});
    }
}

TEST_F(NetTransfer, RefusesBadArguments)
{
    connect_pair(1, &fd, &peer);
    blocked = 7;
    const std::tuple<int, char *, int> cases[] = {
        {0, buf, 8}, {-9, buf, 8}, {fd, nullptr, 8}, {fd, buf, 0}, {fd, buf, -1}};
    for (const auto &[sock, data, len] : cases) {
        SCOPED_TRACE(std::to_string(sock) + " " + std::to_string(len));
        EXPECT_EQ(vx_tcp_block_recv(sock, data, len, 0) + vx_tcp_block_send(sock, data, len), -2);
        EXPECT_EQ(vx_tcp_noblock_recv(sock, data, len, 0), -1);
        EXPECT_EQ(vx_tcp_noblock_mtu_send(sock, data, len, 1), -1);
        EXPECT_EQ(vx_tcp_noblock_send(sock == 0 ? -1 : sock, data, len, &blocked, 1), 0);
        EXPECT_EQ(vx_local_tcp_recv(sock, data, len), -1);
        EXPECT_EQ(vx_local_tcp_send(sock, data, len), len < 0 ? 0 : -1);
        const int local_len = len != 0 ? len : -1; // a local datagram may be empty
        EXPECT_EQ(vx_local_udp_send(sock, "/tmp/nobody", data, local_len), -1);
        EXPECT_EQ(vx_local_udp_recv(sock, data, local_len), -1);
    }
    EXPECT_EQ(vx_tcp_noblock_send(0, "a", 1, nullptr, 1), -1);
    EXPECT_EQ(vx_tcp_noblock_mtu_send(fd, "a", 1, 0) + vx_tcp_noblock_mtu_send(fd, "a", 1, -1), -2);
    EXPECT_EQ(blocked, 7) << "touched on a refusal";
    EXPECT_EQ(received(peer), "");
    close_all({&fd, &peer});
}

TEST_F(NetTransfer, APeerThatNeverReads)
{
    const std::string data(size_t{8} << 20U, 'x'); // more than all buffers hold
    connect_pair(1, &fd, &peer);
    for (const int retry_on : {1, 0}) {
        script_calls({});
        EXPECT_EQ(vx_tcp_noblock_send(fd, data.data(), 8 << 20, &blocked, retry_on), -1);
        EXPECT_EQ(seen.paused_us, retry_on * 1000000);
        EXPECT_EQ(blocked, retry_on) << "flag not reset";
    }
    close_all({&fd, &peer});
}

/* The peer closes or resets; no call may be ended by SIGPIPE, nor wait for what cannot come. */
TEST_F(NetTransfer, APeerThatIsGone)
{
    // clang-format off
    static const struct { const CALL_T &call; int reset, result; } cases[] = {
        {recv_any, 0, -1}, {recv_five,  0, -1}, {block_any,  0,  0}, {local_recv, 0,  0},
        {send_on,  1, -1}, {block_send, 1, -1}, {local_send, 1, -1}, {udp_send,   1, -1},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.call.name);
        connect_pair(1, &fd, &peer);
        ASSERT_EQ(c.reset != 0 ? vx_sock_set_linger(peer) : 0, 0);
        vx_close_socket(&peer);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(c.call.run(), c.result); // the second send would raise the signal
        EXPECT_EQ(seen.paused_us, 0);
        vx_close_socket(&fd);
    }
}

/* With a timer that goes off every 10 ms, a wait of 200 ms must go on with what is left of it. */
TEST_F(NetTransfer, SignalsNeitherEndNorRenewAWait)
{
#ifdef EMULATED
    GTEST_SKIP() << "QEMU's user emulation does not count an interrupted select down";
#endif
    ASSERT_NE(signal(SIGALRM, [](int) {}), SIG_ERR);
    connect_pair(2, &fd, &peer);
    for (const bool accepts : {false, true}) {
        const itimerval every_10_ms = {{0, 10000}, {0, 10000}};
        const itimerval off = {};
        timeval limit = {0, 200000};
        script_calls({});
        on_wait = [&](bool) { // five signals are enough; a wait that is renewed ends all the same
            if (seen.waits.size() == 5) (void)setitimer(ITIMER_REAL, &off, nullptr);
        };
        ASSERT_EQ(setitimer(ITIMER_REAL, &every_10_ms, nullptr), 0);
        EXPECT_EQ(accepts ? vx_tcp_noblock_accept(fd, nullptr, nullptr, &limit) + 1
                          : vx_select(&fd, 1, 1, 200),
                  0);
        ASSERT_EQ(setitimer(ITIMER_REAL, &off, nullptr), 0);
        ASSERT_GT(seen.waits.size(), 1U) << "ended by a signal";
        EXPECT_LT(seen.waits.back(), 195000) << "renewed by a signal";
    }
    close_all({&fd, &peer});
}

TEST_F(NetTransfer, APeerThatSendsByteByByte)
{
    connect_pair(1, &fd, &peer);
    std::string rest = "abcde";
    on_pause = [&] {
        EXPECT_EQ(send(peer, rest.data(), 1, 0), 1);
        rest.erase(0, 1);
    };
    EXPECT_EQ(vx_tcp_noblock_recv(fd, buf, 8, 5), 5);
    EXPECT_EQ(std::string(buf, 5), "abcde");
    EXPECT_EQ(seen.paused_us, 5 * 10000);
    close_all({&fd, &peer});
}
