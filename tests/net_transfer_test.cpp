/* Every send and receive of the socket library, datagram, stream and local: how often it tries, how
 * long it pauses, and what it makes of a peer that is slow, silent, gone or never reads. */
#include <cerrno>
#include <cstring>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetTransfer = NetTest;

/* A call to try, on sockets of a kind (1 stream, 2 datagram), and the length of its pauses. */
struct CALL_T {
    int kind;
    long pause_us;
    int (*run)();
};
#define CALL(name, kind, pause_us, expression) \
    static const CALL_T name = {kind, pause_us, [] { return expression; }};

static int fd, peer, blocked;
static char buf[16];
static sockaddr_in peer_addr;

// clang-format off
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
    // clang-format off
    static const struct {
        const char *fault;
        const CALL_T &call;
        std::vector<int> script;
        int result;
        int pauses = 0;
        int flag = 0;
    } cases[] = {
        {"udp: no second attempt",          udp_one,  {EAGAIN, PASS},                      3, 1},
        {"udp: a third attempt",            udp_one,  {EINTR, EAGAIN},                     0, 1},
        {"udp: second failure hidden",      udp_one,  {EAGAIN, ENOMEM},                   -1, 1},
        {"udp: an empty one is nothing",    udp_one,  {GIVE_NOTHING},                     -1},
        {"wanted: rest not asked for",      udp_five, {PASS, PASS},                        5},
        {"wanted: progress does not renew", udp_five, {EAGAIN, PASS, EAGAIN, PASS},        5, 2},
        {"wanted: partial total lost",      udp_five, {PASS, EINTR, EAGAIN},               3, 1},
        {"wanted: end ignored after some",  udp_five, {PASS, GIVE_NOTHING},               -1},
        {"once: retried",                   udp_once, {EINTR},                             0},
        {"once: empty datagram refused",    udp_once, {GIVE_NOTHING},                      0},
        {"udp send: gives up early",        udp_send, {EAGAIN, EINTR, EAGAIN, PASS},       5, 3},
        {"udp send: a fifth attempt",       udp_send, times(4, EAGAIN),                   -1, 3},
        {"udp send: progress renews",       udp_send, {EINTR, SHORT, EINTR, EINTR, EINTR}, -1, 3},
        {"udp send: hard failure retried",  udp_send, {EAGAIN, EPERM},                    -1, 1},
        {"block recv: size not used",       block_any,   {PASS},                           5},
        {"block recv: wish ignored",         block_three, {PASS},                          3},
        {"block recv: buffer overrun",      block_nine,  {PASS},                           4},
        {"block recv: signal a failure",    block_any,   {EINTR},                          0},
        {"block send: rest not sent",       block_send, {SHORT, SHORT, PASS},              5},
        {"block send: a fourth short one",  block_send, times(3, SHORT),                   3},
        {"block send: signal ignored",      block_send, {SHORT, SHORT, EINTR, SHORT, PASS}, 5},
        {"block send: full socket retried", block_send, {SHORT, EAGAIN},                  -1},
        {"recv: not 500 pauses",            recv_any, times(500, EAGAIN, {PASS}),          5, 500},
        {"recv: a 502nd attempt",           recv_any, times(501, EINTR),                   0, 500},
        {"recv: asks on after some",        recv_any, {SHORT},                             1},
        {"recv: reset retried",             recv_any, {EAGAIN, ECONNRESET},               -1, 1},
        {"recv wanted: pauses not renewed", recv_five,
         times(499, EAGAIN, times(1, SHORT, times(500, EINTR, {PASS}))),                   5, 999},
        {"recv wanted: partial total lost", recv_five, times(1, SHORT, times(501, EAGAIN)), 1, 500},
        {"recv wanted: close gives total",   recv_five, {SHORT, GIVE_NOTHING},           -1},
        {"recv wanted: buffer overrun",     recv_nine, {SHORT, PASS},                      4},
        {"send: not 1000 pauses",           send_on, times(1000, EAGAIN, {PASS}),          5, 1000},
        {"send: progress renews",            send_on,
         times(9, EINTR, times(1, SHORT, times(992, EINTR))),                          -1, 1000, 1},
        {"send: hard failure flagged",      send_on, {EAGAIN, EPIPE},                     -1, 1},
        {"send: zero count flagged",        send_on, times(1000, EAGAIN, {GIVE_NOTHING}), -1, 1000},
        {"send once: retried, or flagged",  send_once, {SHORT, EAGAIN},                   -1},
        {"pieces: not renewed for each",    pieces,
         times(1000, EAGAIN, times(1, PASS, times(1000, EINTR, {PASS}))),                  5, 2000},
        {"pieces: not 1000 pauses",         pieces, times(1, PASS, times(1001, EAGAIN)),  -1, 1000},
        {"pieces: rest of one not sent",    pieces, {SHORT, SHORT, PASS, PASS},            5},
        {"local send: no second write",     local_send, {SHORT, PASS},                     5},
        {"local send: a third write",       local_send, {SHORT, SHORT},                    2},
        {"local send: first count stands",  local_send, {SHORT, EAGAIN},                  -1},
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
        EXPECT_EQ(scripted_calls_left(), 0);
        EXPECT_EQ(seen.pauses, c.pauses);
        EXPECT_EQ(seen.paused_us, c.pauses * c.call.pause_us);
        EXPECT_EQ(blocked, c.flag);
        const bool sends = !seen.sent.empty();
        script_calls({});
        const std::string moved = sends ? received(peer) : buf;
        if (c.result > 0) {
            EXPECT_EQ(moved, std::string("abcde", static_cast<size_t>(c.result)));
        }
        close_all({&fd, &peer});
    }
}

TEST_F(NetTransfer, RefusesBadArguments)
{
    int flag = 7;
    for (const int none : {0, -1, -1000}) {
        EXPECT_EQ(vx_tcp_block_recv(none, buf, 8, 0) + vx_tcp_block_send(none, "a", 1), -2);
        EXPECT_EQ(vx_tcp_noblock_recv(none, buf, 8, 0), -1);
        EXPECT_EQ(vx_tcp_noblock_send(none, "a", 1, nullptr, 1), none == 0 ? -1 : 0);
        EXPECT_EQ(vx_tcp_noblock_mtu_send(none, "a", 1, 1), -1);
        EXPECT_EQ(vx_local_tcp_send(none, "a", -1) + vx_local_tcp_recv(none, buf, 8), -2);
        EXPECT_EQ(vx_local_udp_send(none, "/tmp/nobody", "a", 1), -1);
        EXPECT_EQ(vx_local_udp_recv(none, buf, 8), -1);
    }
    connect_pair(1, &fd, &peer);
    for (const int len : {0, -1, 1}) {
        char *data = len == 1 ? nullptr : buf;
        EXPECT_EQ(vx_tcp_block_recv(fd, data, len, 0) + vx_tcp_block_send(fd, data, len), -2);
        EXPECT_EQ(vx_tcp_noblock_recv(fd, data, len, 0), -1);
        EXPECT_EQ(vx_tcp_noblock_send(fd, data, len, &flag, 1), 0);
        EXPECT_EQ(vx_tcp_noblock_mtu_send(fd, data, len, 1), -1);
        EXPECT_EQ(vx_tcp_noblock_mtu_send(fd, "a", 1, len - 1), -1) << "piece size";
        EXPECT_EQ(vx_local_tcp_send(fd, data, len), len < 0 ? 0 : -1);
        EXPECT_EQ(vx_local_tcp_recv(fd, data, len), -1);
        if (len == 0) continue; // a datagram may be empty
        EXPECT_EQ(vx_local_udp_send(fd, "/tmp/nobody", data, len), -1);
        EXPECT_EQ(vx_local_udp_recv(fd, data, len), -1);
    }
    EXPECT_EQ(flag, 7) << "touched on a refusal";
    EXPECT_EQ(received(peer), "");
    close_all({&fd, &peer});
}

TEST_F(NetTransfer, APeerThatNeverReads)
{
    const std::string data(size_t{8} << 20U, 'x'); // more than all buffers hold
    for (const bool in_pieces : {false, true}) {
        connect_pair(1, &fd, &peer);
        blocked = 0;
        const int len = static_cast<int>(data.size());
        const int sent = in_pieces ? vx_tcp_noblock_mtu_send(fd, data.data(), len, len / 2)
                                   : vx_tcp_noblock_send(fd, data.data(), len, &blocked, 1);
        EXPECT_EQ(sent, -1);
        EXPECT_EQ(seen.pauses, 1000);
        EXPECT_EQ(blocked, in_pieces ? 0 : 1);
        script_calls({});
        EXPECT_EQ(vx_tcp_noblock_send(fd, data.data(), len, &blocked, 0), -1);
        EXPECT_EQ(seen.pauses + blocked, 0) << "one attempt only, and no flag";
        close_all({&fd, &peer});
    }
}

TEST_F(NetTransfer, APeerThatSendsByteByByte)
{
    const std::string data = "one byte at a time";
    char text[100];
    for (const int wanted : {static_cast<int>(data.size()), 100}) {
        connect_pair(1, &fd, &peer);
        size_t next = 0;
        script_calls({});
        on_pause = [&next, &data] {
            if (next < data.size()) send(peer, &data[next++], 1, 0);
        };
        EXPECT_EQ(vx_tcp_noblock_recv(fd, text, 100, wanted), 18);
        EXPECT_EQ(std::string(text, 18), data);
        EXPECT_EQ(seen.pauses, wanted == 100 ? 518 : 18);
        close_all({&fd, &peer});
    }
}

/* The peer closes or resets; no call may be ended by SIGPIPE, nor wait for what cannot come. */
TEST_F(NetTransfer, APeerThatIsGone)
{
    // clang-format off
    static const struct {
        const char *fault;
        const CALL_T &call;
        bool reset;
        int result;
    } gone[] = {
        {"close as data",          recv_any,  false, -1},
        {"close waited out",       recv_five, false, -1},
        {"close a failure",        block_any,  false, 0},
        {"end a failure",          local_recv, false, 0},
        {"SIGPIPE in send",        send_on,    true,  -1},
        {"SIGPIPE in pieces",      pieces,     true,  -1},
        {"SIGPIPE in block send",  block_send, true,  -1},
        {"SIGPIPE in local send",  local_send, true,  -1},
        {"SIGPIPE, datagram call", udp_send,   true,  -1},
    };
    // clang-format on
    for (const auto &c : gone) {
        SCOPED_TRACE(c.fault);
        connect_pair(1, &fd, &peer);
        ASSERT_EQ(c.reset ? vx_sock_set_linger(peer) : 0, 0);
        vx_close_socket(&peer);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(c.call.run(), c.result); // the second send would raise the signal
        EXPECT_EQ(seen.pauses, 0);
        close_all({&fd, &peer});
    }
}
