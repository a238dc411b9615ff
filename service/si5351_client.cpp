/* The client calls: build one command datagram each and send it; some also wait for what the
 * service says. */
#include "service/si5351_client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

#include "log/log.h"
#include "net/vx_net_api.h"
#include "service/message.h"
#include "trim/channels.h"
#include "trim/command_table.h"

using TIME_POINT = std::chrono::steady_clock::time_point;

static constexpr int REPLY_WAIT_MS = 2000;
static constexpr char LISTING_HEADING[] = "5351 info\n";

/* A command, its name in the log, and the leading bytes that carry its arguments. */
struct CLIENT_CALL_T {
    VX_SI5351CMD_E cmd;
    const char *name;
    size_t size;
};
static constexpr size_t CODE_ALONE = offsetof(SI5351_MSG_T, ch);
static constexpr size_t ONE_ARG = offsetof(SI5351_MSG_T, arg) + sizeof(int32_t);
static constexpr size_t TWO_ARGS = ONE_ARG + sizeof(int32_t);
static constexpr CLIENT_CALL_T set_param_call = {VX_SI5351_SET_PARAM, "VX_SI5351_SET_PARAM",
                                                 ONE_ARG};
static constexpr CLIENT_CALL_T increase_call = {VX_SI5351_SET_INC, "VX_SI5351_SET_INC", ONE_ARG};
static constexpr CLIENT_CALL_T decrease_call = {VX_SI5351_SET_DEC, "VX_SI5351_SET_DEC", ONE_ARG};
static constexpr CLIENT_CALL_T reset_call = {VX_SI5351_SET_RESET, "VX_SI5351_SET_RESET", ONE_ARG};
static constexpr CLIENT_CALL_T report_call = {VX_FIFO_REPORT, "VX_FIFO_REPORT", TWO_ARGS};
static constexpr CLIENT_CALL_T dump_call = {VX_SI5351_DUMP, "VX_SI5351_DUMP", CODE_ALONE};

static sockaddr_in service_address()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(SERVICE_PORT);
    address.sin_addr.s_addr = htonl(vx_ip_a2n(SERVICE_IP));
    return address;
}

static int log_unsent(int sock, const CLIENT_CALL_T &call)
{
    LOG_ERROR("send %s to<%s:%d> fd:%d error:%s", call.name, SERVICE_IP, SERVICE_PORT, sock,
              strerror(errno));
    return -1;
}

static int send_command(int sock, const CLIENT_CALL_T &call, int ch, int arg0 = 0, int arg1 = 0)
{
    const SI5351_MSG_T message = {call.cmd, ch, {arg0, arg1}};
    const sockaddr_in service = service_address();
    const ssize_t sent = sendto(sock, &message, call.size, 0,
                                reinterpret_cast<const sockaddr *>(&service), sizeof(service));
    if (sent == static_cast<ssize_t>(call.size)) return 0;
    return log_unsent(sock, call);
}

/* A service that was held up answers every resend of a command, most of them after the call that
 * sent it has returned; such an answer says nothing of the command that comes now. */
static void drop_late_replies(int sock)
{
    const sockaddr_in service = service_address();
    for (;;) {
        char byte = 0;
        sockaddr_in from = {};
        socklen_t from_size = sizeof(from);
        if (recvfrom(sock, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT,
                     reinterpret_cast<sockaddr *>(&from), &from_size) < 0)
            return;
        if (memcmp(&from, &service, sizeof(from)) != 0) return;
        (void)recv(sock, &byte, sizeof(byte), MSG_DONTWAIT); // it is there: just seen
    }
}

/* Any datagram counts as the reply. It is taken whatever it is: one left on the socket would end
 * the wait of the next call. */
static void take_reply(int sock)
{
    SI5351_MSG_T reply;
    sockaddr_in sender;
    (void)receive_message(sock, &reply, &sender);
}

/* vx_select refuses other descriptors at once: nothing is sent whose answer cannot be waited for.
 */
static bool can_wait_for(int sock, const CLIENT_CALL_T &call)
{
    if (sock > 0 && sock < FD_SETSIZE) return true;
    errno = EBADF;
    (void)log_unsent(sock, call);
    return false;
}

int send_set_param(int sock, int ch, int rate_hz)
{
    if (!can_wait_for(sock, set_param_call)) return -1;
    drop_late_replies(sock);
    for (;;) {
        if (send_command(sock, set_param_call, ch, rate_hz) != 0) return -1;
        const int ready = vx_select(&sock, 1, VX_WAIT_READABLE, REPLY_WAIT_MS);
        if (ready == (sock | VX_IS_READABLE)) break;
        if (ready == 0) LOG_ERROR("get 5351 set param response timeout");
    }
    take_reply(sock);
    return 0;
}

int set_increase(int sock, int ch)
{
    return send_command(sock, increase_call, ch);
}

int set_decrease(int sock, int ch)
{
    return send_command(sock, decrease_call, ch);
}

int set_reset(int sock, int ch)
{
    return send_command(sock, reset_call, ch);
}

int set_fifo_status(int sock, int ch, int fifo_size, int fifo_fill)
{
    return send_command(sock, report_call, ch, fifo_size, fifo_fill);
}

/* An answer of the service: an echo, or a line of the listing, which then is a text. */
struct ANSWER_T {
    char bytes[256];
    size_t length; // the byte behind is 0
};

static TIME_POINT end_of_wait(int limit_ms)
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
}

/* Rounded up, so that the last millisecond is a wait and not a loop without a pause. */
static int left_ms(TIME_POINT end)
{
    const auto left = end - std::chrono::steady_clock::now();
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
}

/* False when none came in time, or the socket cannot be waited for. */
static bool receive_answer(int sock, TIME_POINT end, ANSWER_T *answer)
{
    const sockaddr_in service = service_address();
    for (int wait_ms; (wait_ms = left_ms(end)) > 0;) {
        if (vx_select(&sock, 1, VX_WAIT_READABLE, wait_ms) != (sock | VX_IS_READABLE)) return false;
        *answer = {};
        sockaddr_in from = {};
        socklen_t from_size = sizeof(from);
        const ssize_t length =
            recvfrom(sock, answer->bytes, sizeof(answer->bytes) - 1, MSG_DONTWAIT,
                     reinterpret_cast<sockaddr *>(&from), &from_size);
        answer->length = static_cast<size_t>(std::max<ssize_t>(length, 0));
        if (answer->length > 0 && memcmp(&from, &service, sizeof(from)) == 0) return true;
    }
    return false;
}

/* The number of the channel, or 0 for what is no line of a listing. */
static int parse_line(const ANSWER_T &answer, SI5351_LISTED_T *listed)
{
    int ch = 0;
    int length = 0; // stays 0 unless all of the line is there
    (void)sscanf(answer.bytes, "ch:%d rate:%d value:%d status:%15[a-z ]%*1[\n]%n", &ch,
                 &listed->rate_hz, &listed->value, listed->status, &length);
    if (length == 0 || static_cast<size_t>(length) != answer.length) return 0;
    return is_channel(ch) ? ch : 0;
}

/* A heading starts anew: lines ahead of it belong to an answer that an earlier call gave up. */
static bool collect_listing(int sock, TIME_POINT end, SI5351_LISTED_T *listed)
{
    static_assert(SI5351_LISTED_COUNT == CHANNEL_COUNT, "a record for each channel");
    SI5351_LISTED_T found[CHANNEL_COUNT] = {};
    unsigned seen = 0; // bit 0: heading, bits 1 to 3: channels
    ANSWER_T answer;
    while (seen != (2U << CHANNEL_COUNT) - 1) {
        if (!receive_answer(sock, end, &answer)) return false;
        if (strcmp(answer.bytes, LISTING_HEADING) == 0) seen = 1;
        SI5351_LISTED_T line = {};
        const int ch = parse_line(answer, &line);
        if (ch == 0) continue;
        found[ch - 1] = line;
        seen |= 1U << ch;
    }
    std::copy_n(found, CHANNEL_COUNT, listed);
    return true;
}

static int list_until(int sock, SI5351_LISTED_T *listed, TIME_POINT end)
{
    if (!can_wait_for(sock, dump_call)) return -1;
    drop_late_replies(sock);
    if (send_command(sock, dump_call, 0) != 0) return -1;
    if (collect_listing(sock, end, listed)) return 0;
    LOG_ERROR("get 5351 dump response timeout");
    return -1;
}

int list_channels(int sock, SI5351_LISTED_T *listed, int limit_ms)
{
    if (listed == nullptr) return -1;
    return list_until(sock, listed, end_of_wait(limit_ms));
}

/* An echo of another command is a late one. */
static bool await_echo(int sock, TIME_POINT end, int ch, int rate_hz)
{
    const SI5351_MSG_T sent = {set_param_call.cmd, ch, {rate_hz}};
    ANSWER_T answer;
    while (receive_answer(sock, end, &answer)) {
        if (answer.length == sizeof(sent) && memcmp(answer.bytes, &sent, set_param_call.size) == 0)
            return true;
    }
    return false;
}

/* A rate that was set starts at its nominal numerator. When the numerator is another one and the
 * last command is still a set-param, nothing was set: chip writes are off. When the last command is
 * a trim, it came after the set-param. A numerator of 0 tells that the rate was refused. */
static bool is_set(const SI5351_LISTED_T &listed, int rate_hz)
{
    const RATE_ROW_T *row = find_rate(rate_hz);
    if (row == nullptr || listed.rate_hz != rate_hz) return false;
    if (listed.value == static_cast<int32_t>(row->num)) return true;
    return listed.value != 0 && strcmp(listed.status, command_row(set_param_call.cmd).word) != 0;
}

int set_param_within(int sock, int ch, int rate_hz, int limit_ms)
{
    if (!can_wait_for(sock, set_param_call)) return -1;
    const TIME_POINT end = end_of_wait(limit_ms);
    drop_late_replies(sock);
    if (send_command(sock, set_param_call, ch, rate_hz) != 0) return -1;
    if (!await_echo(sock, end, ch, rate_hz)) {
        LOG_ERROR("get 5351 set param response timeout");
        return -1;
    }
    SI5351_LISTED_T listed[CHANNEL_COUNT];
    if (list_until(sock, listed, end) != 0) return -1;
    if (is_channel(ch) && is_set(listed[ch - 1], rate_hz)) return 0;
    LOG_ERROR("set 5351 param refused ch:%d rate:%d", ch, rate_hz);
    return 1;
}
