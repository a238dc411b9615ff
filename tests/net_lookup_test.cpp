/* Ping against the loopback interface, look-ups, and the public address from pages of local
 * servers that answer in the very moment the library waits for them. */
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetLookup = NetTest;

TEST_F(NetLookup, ChecksumsAndTexts)
{
    // The first is worked out in RFC 1071; sums as stored.
    static const std::vector<uint8_t> sums[][2] = {
        {{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7}, {0x22, 0x0d}},
        {{0x00, 0x01, 0xf2, 0x03, 0xf4}, {0x19, 0xfa}},
        {{0xff, 0xff, 0xff, 0xff, 0x01, 0x00}, {0xfe, 0xff}},
    };
    for (const auto &[data, stored] : sums) {
        const uint16_t sum = cal_chksum(data.data(), static_cast<int>(data.size()));
        EXPECT_EQ(memcmp(&sum, stored.data(), 2), 0);
    }
    EXPECT_EQ(cal_chksum(nullptr, 8) + cal_chksum(sums, -1) + cal_chksum(sums, 0), 3 * 0xffff);
    for (const int value : {0, 7, -7, 10, -123, INT_MAX, INT_MIN}) {
        char text[13] = "------------";
        vx_itoa(value, text);
        EXPECT_EQ(text, std::to_string(value));
    }
    char empty[] = "";
    reverse(empty);
    reverse(nullptr);
    vx_itoa(1, nullptr);
}

TEST_F(NetLookup, HostsGiveIpv4Addresses)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    for (const char *text : {"127.0.0.1", "twofaces"})
        EXPECT_EQ(static_cast<in_addr_t>(vx_get_host_ip(text)), inet_addr("127.0.0.1")) << text;
    const char *none = nullptr;
    for (const char *text : {none, "", "255.255.255.255", no_host.c_str()})
        EXPECT_EQ(vx_get_host_ip(text), -1);
}

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
        const char *fault; std::vector<int> calls; int waits, result; unsigned slept_s, waited;
    } cases[] = {
        {"no reply found",         {},                  2,  0, 0, 2},
        {"own request as reply",   {},                  1, -1, 0, 1},
        {"signal ends a wait",     {PASS, PASS, EINTR}, 2,  0, 0, 3},
        {"waits without a wish",   {},                  0,  0, 0, 0},
        {"no pause, not sent",     {PASS, EPERM},       2, -1, 5, 0},
        {"pause without a socket", {EPERM},             2, -1, 0, 0},
    };
    // clang-format on
    for (const auto &c : cases) {
        script_calls(c.calls);
        EXPECT_EQ(vx_ping("127.0.0.1", 2000, c.waits), c.result) << c.fault;
        EXPECT_EQ(seen.slept_s, c.slept_s) << c.fault;
        EXPECT_EQ(seen.waits.size(), c.waited) << c.fault;
    }
    EXPECT_EQ(vx_ping(nullptr, 2000, 2) + vx_ping("", 2000, 2), 0);
    EXPECT_EQ(vx_ping("127.0.0.1", -1, 2), -1);
    EXPECT_EQ(vx_ping("127.000.000.001", 20, 3), -1) << "text of the sender not compared";
    on_wait = [](bool) { own_pid++; };
    EXPECT_EQ(vx_ping("127.0.0.1", 2000, 2), -1) << "identifier not compared";
    own_pid = 0x51234;

    int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    const time_t before = time(nullptr);
    EXPECT_EQ(vx_ping("127.0.0.1", 2000, 0), 0);
    uint8_t packet[128] = {};
    ASSERT_EQ(recv(fd, packet, sizeof(packet), 0), 20 + 64);
    int64_t sent[8]; // header, seconds, microseconds, zeros
    memcpy(sent, packet + 20, sizeof(sent));
    EXPECT_EQ(sent[0] & 0xFFFF, 8) << "type and code";
    EXPECT_EQ(sent[0] >> 32, 0x1234) << "identifier and sequence";
    EXPECT_EQ(cal_chksum(sent, sizeof(sent)), 0);
    EXPECT_TRUE(sent[1] >= before && sent[1] <= time(nullptr) && sent[2] < 1000000);
    EXPECT_EQ(sent[3] | sent[4] | sent[5] | sent[6] | sent[7], 0);
    vx_close_socket(&fd);
}

static std::string expected_request(const std::string &host, const std::string &path)
{
    return "GET " + path + " HTTP/1.1\r\nAccept: */*\r\nReferer: http://" + host +
           "/\r\nAccept-Language: zh-cn\r\nAccept-Encoding: gzip, deflate\r\nUser-Agent: "
           "Mozilla/4.0 (compatible; Win32; WinHttp.WinHttpRequest.5)\r\nHost:" +
           host + "\r\nConnection: Keep-Alive\r\n\r\n";
}

TEST_F(NetLookup, PublicAddressFromTheFirstGoodSource)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to listen on port 80 in";
    static const char *nowhere = "192.0.2.1"; // no route leads there
    static const char *names[] = {"127.0.0.2", "127.0.0.3", nowhere};
    static const char *paths[] = {"/ip2city.asp", "/getip.php?action=getip&ip_url=", "/"};
    const std::string good = "您的IP地址是：[1.2.3.4] </";
    const std::string late = std::string(10240 - good.size(), '.') + good;
    const std::string fits(63, '1');
    const std::vector<int> rough = {PASS, PASS, PASS, SHORT, EAGAIN, EINTR, PASS, EINTR};
    // clang-format off
    const struct { // a page of "": closes without one; a text of "-": none, the buffer as it was
        const char *fault; std::string pages[3]; std::vector<int> calls; std::string text;
    } cases[] = {
        {"name without an address", {"", "'>9.9.9<", "My IP address: 1.2.3.4</"}, {}, "1.2.3.4"},
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
        for (size_t row = 0; row < 3; row++) {
            if (request != expected_request(names[row], paths[row])) continue;
            EXPECT_GE(write(fd, pages[row].data(), pages[row].size()), 0);
        }
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
    EXPECT_EQ(vx_get_wan_ip(nullptr), -1);
    vx_close_socket(&listening);
}
