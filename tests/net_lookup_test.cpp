/* Ping against the loopback interface, look-ups, and the public address from pages of local
 * servers that answer in the very moment the library waits for them. */
#include <algorithm>
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
    static const struct {
        std::vector<uint8_t> data, sum; // the sum as stored
    } sums[] = {
        {{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7}, {0x22, 0x0d}},
        {{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7, 0x22, 0x0d}, {0x00, 0x00}},
        {{0x00, 0x01, 0xf2, 0x03, 0xf4}, {0x19, 0xfa}},
        {{0xff, 0xff, 0xff, 0xff, 0x01, 0x00}, {0xfe, 0xff}},
        {{}, {0xff, 0xff}},
    };
    for (const auto &c : sums) {
        const uint16_t sum = cal_chksum(c.data.data(), static_cast<int>(c.data.size()));
        EXPECT_EQ(memcmp(&sum, c.sum.data(), 2), 0);
    }
    EXPECT_EQ(cal_chksum(nullptr, 8), 0xffff);
    EXPECT_EQ(cal_chksum(sums, -1), 0xffff);
    for (const int value : {0, 7, -7, 10, -100, INT_MAX, INT_MIN}) {
        char text[13] = "------------";
        vx_itoa(value, text);
        EXPECT_EQ(text, std::to_string(value));
    }
    for (const char *pair : {"=", "a=a", "ab=ba", "abc=cba"}) {
        std::string text = pair;
        const size_t middle = text.find('=');
        text[middle] = '\0';
        reverse(text.data());
        EXPECT_STREQ(text.c_str(), pair + middle + 1);
    }
    vx_itoa(1, nullptr);
    reverse(nullptr);
}

TEST_F(NetLookup, HostsGiveIpv4Addresses)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no mount namespace to name hosts in";
    ASSERT_NO_FATAL_FAILURE(name_two_faces());
    for (const char *text : {"127.0.0.1", "twofaces"})
        EXPECT_EQ(static_cast<in_addr_t>(vx_get_host_ip(text)), inet_addr("127.0.0.1")) << text;
    for (const char *text :
         {static_cast<const char *>(nullptr), "", "255.255.255.255", no_host.c_str()})
        EXPECT_EQ(vx_get_host_ip(text), -1);
}

/* Sends an ICMP header from an address of this machine to 127.0.0.1. */
static void send_icmp(const char *from, int type, int id)
{
    int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    EXPECT_EQ(vx_bind_sock(fd, vx_ip_a2n(from), 0), 0);
    uint16_t packet[4] = {htons(static_cast<uint16_t>(type << 8)), 0, static_cast<uint16_t>(id)};
    packet[1] = cal_chksum(packet, sizeof(packet));
    const sockaddr_in to = loopback(0);
    sendto(fd, packet, sizeof(packet), 0, reinterpret_cast<const sockaddr *>(&to), sizeof(to));
    vx_close_socket(&fd);
}

TEST_F(NetLookup, PingRequestOnTheWire)
{
    int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (fd < 0) GTEST_SKIP() << "no right to open raw sockets";
    const time_t before = time(nullptr);
    EXPECT_EQ(vx_ping("127.0.0.1", 2000, 0), 0);
    uint8_t packet[128] = {};
    ASSERT_EQ(recv(fd, packet, sizeof(packet), 0), 20 + 64);
    int64_t fields[8]; // of the ICMP packet: header, seconds, microseconds, padding
    memcpy(fields, packet + 20, sizeof(fields));
    uint16_t header[4];
    memcpy(header, packet + 20, sizeof(header));
    EXPECT_EQ(header[0], htons(0x0800));
    EXPECT_EQ(header[2], static_cast<uint16_t>(getpid()));
    EXPECT_EQ(header[3], 0);
    EXPECT_EQ(cal_chksum(fields, sizeof(fields)), 0);
    EXPECT_TRUE(fields[1] >= before && fields[1] <= time(nullptr) && fields[2] < 1000000);
    EXPECT_EQ(std::count(fields + 3, fields + 8, 0), 5);
    vx_close_socket(&fd);
}

TEST_F(NetLookup, PingTakesItsOwnReplyOnly)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to keep quiet";
    const std::vector<int> signal = {PASS, PASS, EINTR};
    const std::vector<int> empty = {PASS, GIVE_NOTHING};
    // clang-format off
    const struct {
        const char *fault, *to;
        int limit_ms, waits;
        const char *from; // sender of a forged reply, with its type and identifier; null: the
        int type, id;     // system replies. The identifier counts from the right one
        std::vector<int> calls;
        int result;
        unsigned slept_s;
        size_t waited;
    } cases[] = {
        {"no reply found",         "127.0.0.1", 2000, 2, nullptr,     0, 0, {},         0, 0, 2},
        {"own request as reply",   "127.0.0.1", 2000, 1, nullptr,     0, 0, {},        -1, 0, 1},
        {"text not compared",      "127.000.000.001", 20, 3, nullptr, 0, 0, {},        -1, 0, 3},
        {"signal ends a wait",     "127.0.0.1", 2000, 2, nullptr,     0, 0, signal,     0, 0, 3},
        {"good reply not taken",   "127.0.0.1", 2000, 2, "127.0.0.1", 0, 0, {},         0, 0, 2},
        {"type not compared",      "127.0.0.1", 2000, 2, "127.0.0.1", 3, 0, {},        -1, 0, 2},
        {"id not compared",        "127.0.0.1", 2000, 2, "127.0.0.1", 0, 1, {},        -1, 0, 2},
        {"sender not compared",    "127.0.0.1", 2000, 2, "127.0.0.2", 0, 0, {},        -1, 0, 2},
        {"waits without a wish",   "127.0.0.1", 2000, 0, nullptr,     0, 0, {},         0, 0, 0},
        {"no pause, not sent",     "127.0.0.1", 2000, 2, nullptr,     0, 0, {PASS, 1}, -1, 5, 0},
        {"no pause, sent nothing", "127.0.0.1", 2000, 2, nullptr,     0, 0, empty,     -1, 5, 0},
        {"no pause, bad limit",    "127.0.0.1",   -1, 2, nullptr,     0, 0, {},        -1, 5, 0},
        {"pause without a socket", "127.0.0.1", 2000, 2, nullptr,     0, 0, {EPERM},   -1, 0, 0},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fault);
        std::ofstream("/proc/sys/net/ipv4/icmp_echo_ignore_all") << (c.from != nullptr ? 1 : 0);
        script_calls(c.calls);
        on_wait = [&c](bool) {
            if (c.from == nullptr || seen.waits.size() > 1) return;
            send_icmp(c.from, c.type, getpid() + c.id);
        };
        EXPECT_EQ(vx_ping(c.to, c.limit_ms, c.waits), c.result);
        EXPECT_EQ(seen.slept_s, c.slept_s);
        EXPECT_EQ(seen.waits.size(), c.waited);
    }
    script_calls({});
    EXPECT_EQ(vx_ping(nullptr, 2000, 2) + vx_ping("", 2000, 2), 0);
    EXPECT_TRUE(seen.sent.empty());
}

/* The sources in the order asked: the last is reached through its numeric address only. */
static const struct {
    const char *name, *address, *action;
} served[] = {
    {"127.0.0.2", "127.0.0.9", "/ip2city.asp"},
    {"127.0.0.3", "127.0.0.9", "/getip.php?action=getip&ip_url="},
    {"127.0.0.9", "127.0.0.4", "/"},
};

/* Takes a waiting connection, checks its request and answers with a page, or with nothing. */
static void serve_page(int listening, size_t row, const std::string &page)
{
    int fd = accept4(listening, nullptr, nullptr, 0);
    if (fd < 0) return;
    char request[1024] = {};
    EXPECT_GT(read(fd, request, sizeof(request) - 1), 0);
    const std::string host = served[row].name;
    EXPECT_EQ(request,
              std::string("GET ") + served[row].action +
                  " HTTP/1.1\r\nAccept: */*\r\nReferer: http://" + host +
                  "/\r\nAccept-Language: zh-cn\r\nAccept-Encoding: gzip, deflate\r\n"
                  "User-Agent: Mozilla/4.0 (compatible; Win32; WinHttp.WinHttpRequest.5)\r\n"
                  "Host:" +
                  host + "\r\nConnection: Keep-Alive\r\n\r\n");
    EXPECT_EQ(write(fd, page.data(), page.size()), static_cast<ssize_t>(page.size()));
    vx_close_socket(&fd);
}

TEST_F(NetLookup, PublicAddressFromTheFirstGoodSource)
{
    if (!in_own_namespaces()) GTEST_SKIP() << "no network namespace to listen on port 80 in";
    const std::string dots(10240, '.');
    const std::string fits(63, '1');
    const std::string none = "-";
    const std::string begin0 = "您的IP地址是：[";
    const std::string begin1 = "'>";
    const std::string begin2 = "My IP address: ";
    const std::string last = begin0 + "1.2.3.4] </"; // at the end of what is received
    const std::vector<int> rough = {PASS, PASS, PASS, SHORT, EAGAIN, EINTR, PASS, EINTR};
    // clang-format off
    const struct {
        const char *fault;
        std::string pages[3]; // "": closes without one, "-": nobody listens
        std::vector<int> calls;
        std::string text; // "-": none, and the buffer as it was
    } cases[] = {
        {"stops at a failed one", {none, begin1 + "9.9.9<", begin2 + "1.2.3.4</"}, {}, "1.2.3.4"},
        {"first one passed over", {begin0 + "1.2.3.4] </", begin1 + "9</", none}, {}, "1.2.3.4"},
        {"early close not seen",  {"", "</" + begin1 + "1.2.3.4</", none}, {}, "1.2.3.4"},
        {"end before the start",  {none, "</" + begin1 + "9.9.9.9", none}, {}, none},
        {"10240 bytes cut",       {dots.substr(last.size()) + last, none, none}, {}, "1.2.3.4"},
        {"searched past the end", {dots.substr(last.size() - 1) + last, none, none}, {}, none},
        {"63 bytes refused",      {none, begin1 + fits + "</", none}, {}, fits},
        {"64 bytes taken",        {none, begin1 + fits + "1</", none}, {}, none},
        {"nothing in between",    {none, begin1 + "</", none}, {}, ""},
        {"all sources down",      {none, none, none}, {}, none},
        {"signal, full socket",   {begin0 + "1.2.3.4] </", none, none}, rough, "1.2.3.4"},
    };
    // clang-format on
    for (size_t row = 0; row < 3; row++) {
        (void)snprintf(stWanSources.webUrl[row], VX_WAN_SLOT_SIZE, "%s", served[row].name);
        (void)snprintf(stWanSources.ipUrl[row], VX_WAN_SLOT_SIZE, "%s", served[row].address);
    }
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fault);
        int listening[3] = {-1, -1, -1};
        for (size_t row = 0; row < 3; row++) {
            if (c.pages[row] == none) continue;
            listening[row] =
                vx_tcp_listen(row == 2 ? served[row].address : served[row].name, "80", nullptr);
            vx_set_sock_noblock(listening[row]);
        }
        on_wait = [&](bool reading) {
            for (size_t row = 0; row < 3 && reading; row++)
                serve_page(listening[row], row, c.pages[row]);
        };
        char text[65] = "-";
        script_calls(c.calls);
        EXPECT_EQ(vx_get_wan_ip(text), c.text == none ? -1 : 0);
        EXPECT_EQ(text, c.text);
        close_all({&listening[0], &listening[1], &listening[2]});
    }
    EXPECT_EQ(vx_get_wan_ip(nullptr), -1);
}
