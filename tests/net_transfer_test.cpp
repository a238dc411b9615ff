/* Every send and receive of the socket library, datagram, stream and local: how often it tries, how
 * long it pauses, and what it makes of signals, of failures, and of a peer that is gone. */
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetTransfer = NetTest;

static int fd, peer, udp, blocked;
static char buf[16];
static const sockaddr_in discard = loopback(9);

// clang-format off
/* A call to try on sockets of a kind (1 stream, 2 datagram), and the length of its pauses. */
struct CALL_T { const char *name; int kind; long pause_us; int (*run)(); };
#define CALL(name, kind, pause_us, expression) \
    static const CALL_T name = {#name, kind, pause_us, [] { return expression; }};

CALL(udp_one,     2, 1000,  vx_udp_recv(fd, buf, 8, 0, nullptr, nullptr))
CALL(udp_five,    2, 1000,  vx_udp_recv(fd, buf, 8, 5, nullptr, nullptr))
CALL(udp_once,    2, 0,     vx_udp_recv2(fd, buf, 8, 0, nullptr, nullptr))
CALL(udp_byte,    2, 0,     vx_udp_recv2(fd, buf, 8, 1, nullptr, nullptr))
CALL(udp_send,    2, 1000,  vx_udp_send(udp, "abcde", 5, &discard))
CALL(block_any,   1, 0,     vx_tcp_block_recv(fd, buf, 8, 0))
CALL(block_byte,  1, 0,     vx_tcp_block_recv(fd, buf, 8, 1))
CALL(block_nine,  1, 0,     vx_tcp_block_recv(fd, buf, 4, 9))
CALL(block_send,  1, 0,     vx_tcp_block_send(fd, "abcde", 5))
CALL(recv_any,    1, 10000, vx_tcp_noblock_recv(fd, buf, 8, 0))
CALL(recv_nine,   1, 10000, vx_tcp_noblock_recv(fd, buf, 4, 9))
CALL(send_on,     1, 1000,  vx_tcp_noblock_send(fd, "abcde", 5, &blocked, 1))
CALL(send_once,   1, 1000,  vx_tcp_noblock_send(fd, "abcde", 5, &blocked, 0))
CALL(pieces,      1, 1000,  vx_tcp_noblock_mtu_send(fd, "abcde", 5, 3))
CALL(local_send,  1, 0,     vx_local_tcp_send(fd, "abcde", 5))

/* The first outcome so many times, then the rest. */
static std::vector<int> times(int count, int outcome, std::vector<int> rest = {})
{
    rest.insert(rest.begin(), static_cast<size_t>(count), outcome);
    return rest;
}

static const auto two_pieces = times(1000, EAGAIN, times(1, PASS, times(1000, EINTR, {PASS})));
static const auto renewing = times(9, EINTR, times(1, SHORT, times(992, EINTR)));

/* The peer has sent "abc" and "de", as two datagrams or as one stream; a send offers "abcde". */
static const struct {
    const char *fault; const CALL_T &call; std::vector<int> script;
    int result; int pauses = 0; int flag = 7;
} attempts[] = {
    {"udp: not two attempts",           udp_one,     {EINTR, EAGAIN},                 0, 1},
    {"udp: second failure hidden",      udp_one,     {EAGAIN, ENOMEM},               -1, 1},
    {"wanted: progress does not renew", udp_five,    {EAGAIN, PASS, EAGAIN, PASS},    5, 2},
    {"wanted: partial total lost",      udp_five,    {PASS, EINTR, EAGAIN},           3, 1},
    {"wanted: end ignored after some",  udp_five,    {PASS, GIVE_NOTHING},           -1},
    {"once: retried",                   udp_once,    {EINTR},                         0},
    {"once: failure hidden",            udp_once,    {ENOMEM},                       -1},
    {"once: not the whole buffer",      udp_once,    {PASS},                          3},
    {"once: wish ignored",              udp_byte,    {PASS},                          1},
    {"udp send: progress renews",       udp_send,    {SHORT, EAGAIN, EINTR, EINTR, EINTR}, -1, 3},
    {"block recv: wish ignored",        block_byte,  {PASS},                          1},
    {"block recv: buffer overrun",      block_nine,  {PASS},                          4},
    {"block recv: signal a failure",    block_any,   {EINTR},                         0},
    {"block recv: failure hidden",      block_any,   {ECONNRESET},                   -1},
    {"block recv: the end a failure",   block_any,   {GIVE_NOTHING},                  0},
    {"block send: not three short",     block_send,  times(3, SHORT),                 3},
    {"block send: signal starts anew",  block_send,  {SHORT, SHORT, EINTR, SHORT, SHORT, PASS}, 5},
    {"block send: nothing sent",        block_send,  {SHORT, GIVE_NOTHING},          -1},
    {"recv: not 500 pauses",            recv_any,    times(501, EINTR),               0, 500},
    {"recv: asks on after some",        recv_any,    {SHORT},                         1},
    {"recv: failure hidden",            recv_any,    {ECONNRESET},                   -1},
    {"recv wanted: buffer overrun",     recv_nine,   {SHORT, PASS},                   4},
    {"send: not 1000, or renewed",      send_on,     renewing,                       -1, 1000, 1},
    {"send: hard failure flagged",      send_on,     {EAGAIN, EPIPE},                -1, 1, 0},
    {"send once: retried, or flagged",  send_once,   {SHORT, EAGAIN},                -1, 0, 0},
    {"pieces: not 1000 for each",       pieces,      two_pieces,                      5, 2000},
    {"pieces: rest of one not sent",    pieces,      {SHORT, SHORT, PASS, PASS},      5},
    {"local send: not two writes",      local_send,  {SHORT, SHORT},                  2},
    {"local send: first count stands",  local_send,  {SHORT, EAGAIN},                -1},
};
// clang-format on

TEST_F(NetTransfer, AttemptsAreCounted)
{
    udp = vx_create_sock(VX_SOCK_DATAGRAM);
    for (const auto &c : attempts) {
        SCOPED_TRACE(c.fault);
        connect_pair(c.call.kind, &fd, &peer);
        ASSERT_EQ(send(peer, "abc", 3, 0) + send(peer, "de", 2, 0), 5);
        memset(buf, 0, sizeof(buf));
        blocked = 7;
        script_calls(c.script);
        EXPECT_EQ(c.call.run(), c.result);
        EXPECT_EQ(seen.paused_us, c.pauses * c.call.pause_us);
        EXPECT_EQ(blocked, c.flag);
        script_calls({});
        const std::string moved = buf[0] != 0 ? buf : received(peer);
        EXPECT_EQ(c.result > 0 ? moved : "", std::string("abcde").substr(0, std::max(c.result, 0)));
        close_all(&fd, &peer);
    }
    close_all(&udp);
}

TEST_F(NetTransfer, SendsToAPeerThatIsGoneRaiseNoSignal)
{
    for (const CALL_T *call : {&send_on, &block_send, &local_send}) {
        connect_pair(VX_SOCK_STREAM, &fd, &peer);
        close_all(&peer);
        EXPECT_EQ(call->run(), -1) << call->name;
        EXPECT_EQ(seen.paused_us, 0) << call->name;
        close_all(&fd);
    }
}

TEST_F(NetTransfer, DatagramsLargeAndWithTheirSender)
{
    fd = vx_create_sock(VX_SOCK_DATAGRAM); // blocks: what is sent need not be there at once
    peer = vx_create_sock(VX_SOCK_DATAGRAM);
    ASSERT_EQ(vx_bind_sock(fd, INADDR_LOOPBACK, 0), 0);
    ASSERT_EQ(vx_bind_sock(peer, INADDR_LOOPBACK, 0), 0);
    const sockaddr_in to = loopback(vx_get_sock_port(fd));
    ASSERT_EQ(vx_udp_send(peer, "abcde", 5, &to), 5);
    ASSERT_EQ(vx_select(&fd, 1, 1, 2000), fd | 0x10000);
    CaptureStdout();
    EXPECT_EQ(vx_udp_recv(fd, buf, 4, 0, nullptr, nullptr), -1);
    EXPECT_EQ(GetCapturedStdout(), "socket buffer len[5] > bufSize[4] error\n");
    EXPECT_EQ(vx_udp_recv(fd, buf, 5, 0, nullptr, nullptr), 5) << "not left there";
    for (auto *receive : {vx_udp_recv2, vx_udp_recv}) {
        sockaddr_in from[2] = {};
        socklen_t room = 4; // family and port
        const int wanted = receive == vx_udp_recv ? 4 : 2;
        for (int sent = 0; sent < wanted + 2; sent += 2)
            ASSERT_EQ(vx_udp_send(peer, "ab", 2, &to), 2);
        EXPECT_EQ(receive(fd, buf, 8, wanted, from, &room), wanted);
        EXPECT_EQ(ntohs(from[0].sin_port), vx_get_sock_port(peer));
        EXPECT_EQ(from[0].sin_addr.s_addr, 0U) << "more than there is room for";
        EXPECT_EQ(room, sizeof(sockaddr_in));
        EXPECT_EQ(receive(fd, buf, 8, 0, &from[1], nullptr), 2);
        EXPECT_EQ(from[1].sin_port, 0);
    }
    close_all(&fd, &peer);
}
