/* Ping and look-ups: checksum, echo request, the address of a host, the public address of this
 * machine, and two text utilities. */
#include "net/vx_net_api.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

#include "net/socket_calls.h"

static constexpr uint8_t ECHO_REQUEST = 8; // ICMP types
static constexpr uint8_t ECHO_REPLY = 0;
static constexpr int PING_REPLY_SIZE = 128;
static constexpr unsigned PING_PAUSE_S = 5; // after a request that could not be sent
static constexpr int IPV4_TEXT_SIZE = 16;

static constexpr int WAN_LIMIT_MS = 15000; // for each connect, and for the reply
static constexpr int WAN_PAGE_SIZE = 10240;

/* Takes the path of a row, then its host name twice. */
static constexpr const char *WAN_REQUEST =
    "GET %s HTTP/1.1\r\nAccept: */*\r\nReferer: http://%s/\r\nAccept-Language: zh-cn\r\n"
    "Accept-Encoding: gzip, deflate\r\n"
    "User-Agent: Mozilla/4.0 (compatible; Win32; WinHttp.WinHttpRequest.5)\r\nHost:%s\r\n"
    "Connection: Keep-Alive\r\n\r\n";

/* One echo request as it is sent, numbers in the machine's byte order:
 *   0 type   1 code   2 checksum   4 identifier   6 sequence   8 time of sending   24 zeros */
struct ECHO_T {
    uint8_t type, code;
    uint16_t checksum, id, sequence;
    int64_t seconds, microseconds;
    uint8_t padding[40];
};
static_assert(sizeof(ECHO_T) == 64, "size on the wire");

VX_WAN_SOURCES_T stWanSources = {
    {"www.first.example", "www.second.example", "www.third.example"},
    {"192.0.2.1", "198.51.100.1", "203.0.113.1"},
    {"/ip2city.asp", "/getip.php?action=getip&ip_url=", "/"},
    {"您的IP地址是：[", "'>", "My IP address: "},
    {"] </", "</", "</"},
};
static_assert(sizeof(stWanSources.webUrl) == 96, "three texts of 32 bytes");

uint16_t cal_chksum(const void *data, int len)
{
    if (data == nullptr) return 0xFFFF; // the sum of no data
    const auto *bytes = static_cast<const uint8_t *>(data);
    uint32_t sum = 0;
    for (; len > 0; len -= 2, bytes += 2) {
        uint16_t word = 0; // a last odd byte is the first in memory, then a 0
        memcpy(&word, bytes, len > 1 ? 2 : 1);
        sum += word;
    }
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum += sum >> 16;
    return static_cast<uint16_t>(~sum);
}

static uint16_t own_id()
{
    return static_cast<uint16_t>(getpid());
}

static ECHO_T build_echo()
{
    timeval now = {};
    (void)gettimeofday(&now, nullptr); // cannot fail with a valid place
    ECHO_T echo = {};
    echo.type = ECHO_REQUEST;
    echo.id = own_id();
    echo.seconds = now.tv_sec;
    echo.microseconds = now.tv_usec;
    echo.checksum = cal_chksum(&echo, sizeof(echo));
    return echo;
}

static bool send_echo(int fd, const char *to, timeval limit)
{
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) < 0) return false;
    sockaddr_in addr = net_ipv4(INADDR_ANY, 0);
    (void)inet_pton(AF_INET, to, &addr.sin_addr); // no address: 0.0.0.0
    const ECHO_T echo = build_echo();
    return sendto(fd, &echo, sizeof(echo), 0, net_plain(&addr), sizeof(addr)) > 0;
}

/* Receives one packet with its IP header. True when it answers our request. */
static bool receive_echo(int fd, const char *to)
{
    uint8_t packet[PING_REPLY_SIZE];
    sockaddr_in from = {};
    socklen_t from_len = sizeof(from);
    const ssize_t count = recvfrom(fd, packet, sizeof(packet), 0, net_plain(&from), &from_len);
    const ssize_t header = count > 0 ? (packet[0] & 0x0F) * 4 : 0;
    if (count < header + 8) return false; // an ICMP header has 8 bytes

    char sender[IPV4_TEXT_SIZE];
    (void)vx_ip_n2a(ntohl(from.sin_addr.s_addr), sender, sizeof(sender)); // always fits
    uint16_t id;
    memcpy(&id, packet + header + 4, sizeof(id));
    return strcmp(sender, to) == 0 && packet[header] == ECHO_REPLY && id == own_id();
}

int vx_ping(const char *to, int timeout_ms, int waits)
{
    if (to == nullptr || to[0] == '\0') return 0;
    int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (fd < 0) return -1;
    timeval limit = net_split_ms(timeout_ms);
    if (!send_echo(fd, to, limit)) {
        (void)vx_close_socket(&fd);
        (void)sleep(PING_PAUSE_S);
        return -1;
    }
    bool answered = waits <= 0;
    for (int i = 0; i < waits && !answered; i++)
        answered = net_wait(fd, NET_READABLE, &limit) && receive_echo(fd, to);
    (void)vx_close_socket(&fd);
    return answered ? 0 : -1;
}

int vx_get_host_ip(const char *text)
{
    if (text == nullptr || text[0] == '\0' || strcmp(text, "255.255.255.255") == 0) return -1;
    in_addr_t addr;
    if (net_find_ipv4(text, &addr) != 0) return -1;
    return static_cast<int>(addr);
}

static int connect_source(int row)
{
    for (const char *host : {stWanSources.webUrl[row], stWanSources.ipUrl[row]}) {
        const int fd = vx_tcp_noblock_connect(nullptr, nullptr, host, "80", WAN_LIMIT_MS);
        if (fd > 0) return fd;
    }
    return -1;
}

/* Asks one source for its page. Returns the bytes received; 0 or below: none. */
static int fetch_page(int fd, int row, char *page, int size)
{
    const char *host = stWanSources.webUrl[row];
    const int len = snprintf(page, static_cast<size_t>(size), WAN_REQUEST,
                             stWanSources.httpAction[row], host, host);
    if (vx_tcp_noblock_send(fd, page, len, nullptr, 1) != len) return -1;

    timeval limit = net_split_ms(WAN_LIMIT_MS);
    if (!net_wait(fd, NET_READABLE, &limit)) return -1;
    return vx_tcp_noblock_recv(fd, page, size, 0);
}

bool net_copy_marked(std::string_view page, int row, char *text)
{
    const std::string_view start = stWanSources.startCode[row];
    const size_t found = page.find(start);
    if (found == std::string_view::npos) return false;
    const size_t first = found + start.size();
    const size_t last = page.find(stWanSources.endCode[row], first);
    if (last == std::string_view::npos || last - first >= NET_WAN_TEXT_SIZE) return false;
    memcpy(text, page.data() + first, last - first);
    text[last - first] = '\0';
    return true;
}

int vx_get_wan_ip(char *text)
{
    if (text == nullptr) return -1;
    for (int row = 0; row < VX_WAN_SOURCES; row++) {
        int fd = connect_source(row);
        if (fd < 0) continue;
        char page[WAN_PAGE_SIZE];
        const int len = fetch_page(fd, row, page, sizeof(page));
        (void)vx_close_socket(&fd);
        if (len > 0 && net_copy_marked({page, static_cast<size_t>(len)}, row, text)) return 0;
    }
    return -1;
}

void vx_itoa(int32_t value, char *text)
{
    if (text == nullptr) return;
    uint32_t rest = static_cast<uint32_t>(value);
    if (value < 0) rest = 0 - rest; // the magnitude, also of the most negative value
    char *next = text;
    do {
        *next++ = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (value < 0) *next++ = '-';
    *next = '\0';
    reverse(text);
}

void reverse(char *text)
{
    if (text == nullptr || text[0] == '\0') return;
    for (char *last = text + strlen(text) - 1; text < last; text++, last--)
        std::swap(*text, *last);
}
