/* Ping against the loopback interface, and the public address from pages of
 * local servers that answer in the very moment the library waits for them. */
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetLookup = NetTest;

/* Stands before the C library's function of the same name. */
static pid_t own_pid = 0x51234; // the low 16 bits identify a request
extern "C" pid_t getpid() noexcept
{
    return own_pid;
}

TEST_F(NetLookup, PingsTheLoopbackInterface)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to keep quiet";
    // clang-format off
    const struct { // the request itself comes first, then the reply
        const char *fault, *to; int limit_ms; std::vector<int> calls; int waits, result;
        unsigned slept_s, waited;
    } cases[] = {
        {"no reply found",          "127.0.0.1", 2000, {},                   2,  0, 0, 2},
        {"own request as reply",    "127.0.0.1", 2000, {},                   1, -1, 0, 1},
        {"signal ends a wait",      "127.0.0.1", 2000, {PASS, PASS, EINTR},  2,  0, 0, 3},
        {"waits without a wish",    "127.0.0.1", 2000, {},                   0,  0, 0, 0},
        {"no pause, not sent",      "127.0.0.1", 2000, {PASS, GIVE_NOTHING}, 2, -1, 5, 0},
        {"pause without a socket",  "127.0.0.1", 2000, {EPERM},              2, -1, 0, 0},
        {"no pause, limit refused", "127.0.0.1",   -1, {},                   2, -1, 5, 0},
        {"sender not compared",     "127.0.0.01",  20, {},                   3, -1, 0, 3},
    };
    // clang-format on
    for (const auto &c : cases) {
        script_calls(c.calls);
        EXPECT_EQ(vx_ping(c.to, c.limit_ms, c.waits), c.result) << c.fault;
        EXPECT_EQ(seen.slept_s, c.slept_s) << c.fault;
        EXPECT_EQ(seen.waits.size(), c.waited) << c.fault;
    }
    on_wait = [](bool) { own_pid++; };
    EXPECT_EQ(vx_ping("127.0.0.1", 2000, 2), -1) << "identifier not compared";
    own_pid = 0x51234;
}

static std::string expected_request(const std::string &host, int row)
{
    return std::string("GET ") + stWanSources.httpAction[row] +
           " HTTP/1.1\r\nAccept: */*\r\nReferer: http://" + host +
           "/\r\nAccept-Language: zh-cn\r\nAccept-Encoding: gzip, deflate\r\nUser-Agent: "
           "Mozilla/4.0 (compatible; Win32; WinHttp.WinHttpRequest.5)\r\nHost:" +
           host + "\r\nConnection: Keep-Alive\r\n\r\n";
}

TEST_F(NetLookup, PublicAddressFromTheFirstGoodSource)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to listen on port 80 in";
    static const char *nowhere = "192.0.2.1"; // no route leads there
    static const char *names[] = {"127.0.0.2", "127.0.0.3", nowhere};
    const std::string good = "您的IP地址是：[1.2.3.4] </";
    const std::string late = std::string(10240 - good.size(), '.') + good;
    const std::string fits(63, '1');
    const std::vector<int> rough = {PASS, PASS, PASS, SHORT, EAGAIN, EINTR, PASS, EINTR};
    // clang-format off
    const struct { // a page of "": closes without one; a text of "-": none, the buffer as it was
        const char *fault; std::string pages[3]; std::vector<int> calls; std::string text;
    } cases[] = {
        {"no start marker",  {"1.2.3.4] </", "'>9<", "My IP address: 1.2.3.4</"}, {}, "1.2.3.4"},
        {"first one passed over",   {good, "'>9</", ""},           {},    "1.2.3.4"},
        {"end before the start",    {"", "</'>1.2.3.4</", ""},     {},    "1.2.3.4"},
        {"10240 bytes cut",         {late, "", ""},                {},    "1.2.3.4"},
        {"searched past the end",   {"." + late, "", ""},          {},    "-"},
        {"63 bytes refused",        {"", "'>" + fits + "</", ""},  {},    fits},
        {"64 bytes taken",          {"", "'>" + fits + "1</", ""}, {},    "-"},
        {"signal, full socket",     {good, "", ""},                rough, "1.2.3.4"},
    };
    // clang-format on
    for (size_t row = 0; row < 3; row++) {
        (void)snprintf(stWanSources.webUrl[row], VX_WAN_SLOT_SIZE, "%s", names[row]);
        (void)snprintf(stWanSources.ipUrl[row], VX_WAN_SLOT_SIZE, row < 2 ? nowhere : "127.0.0.4");
    }
    int listening = vx_tcp_listen("0.0.0.0", "80", nullptr);
    vx_set_sock_noblock(listening);
    const std::string *pages = nullptr;
    on_wait = [&](bool reading) {
        int fd = reading ? accept4(listening, nullptr, nullptr, 0) : -1;
        if (fd < 0) return;
        char request[1024] = {};
        EXPECT_GT(read(fd, request, sizeof(request) - 1), 0);
        const int row = (vx_get_sock_ip(fd) >> 24) - 2; // 127.0.0.2 to 127.0.0.4
        EXPECT_EQ(request, expected_request(names[row], row));
        EXPECT_GE(write(fd, pages[row].data(), pages[row].size()), 0);
        vx_close_socket(&fd);
    };
    char text[65];
    for (const auto &c : cases) {
        (void)snprintf(text, sizeof(text), "-");
        pages = c.pages;
        script_calls(c.calls);
        EXPECT_EQ(vx_get_wan_ip(text), c.text == "-" ? -1 : 0) << c.fault;
        EXPECT_EQ(text, c.text) << c.fault;
    }
    pages = cases[2].pages;
    (void)snprintf(stWanSources.webUrl[0], VX_WAN_SLOT_SIZE, "%s", nowhere);
    EXPECT_EQ(vx_get_wan_ip(text), 0) << "stops at a source that is not there";
    vx_close_socket(&listening);
}
