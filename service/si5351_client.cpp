/* The client calls: build one command datagram each and send it; set-param also waits. */
#include "service/si5351_client.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

#include "log/log.h"
#include "net/vx_net_api.h"
#include "service/message.h"

static constexpr int REPLY_WAIT_MS = 2000;

/* A command, its name in the log, and the leading bytes that carry its arguments. */
struct CLIENT_CALL_T {
    VX_SI5351CMD_E cmd;
    const char *name;
    size_t size;
};
static constexpr size_t ONE_ARG = offsetof(SI5351_MSG_T, arg) + sizeof(int32_t);
static constexpr size_t TWO_ARGS = ONE_ARG + sizeof(int32_t);
static constexpr CLIENT_CALL_T set_param_call = {VX_SI5351_SET_PARAM, "VX_SI5351_SET_PARAM",
                                                 ONE_ARG};
static constexpr CLIENT_CALL_T increase_call = {VX_SI5351_SET_INC, "VX_SI5351_SET_INC", ONE_ARG};
static constexpr CLIENT_CALL_T decrease_call = {VX_SI5351_SET_DEC, "VX_SI5351_SET_DEC", ONE_ARG};
static constexpr CLIENT_CALL_T reset_call = {VX_SI5351_SET_RESET, "VX_SI5351_SET_RESET", ONE_ARG};
static constexpr CLIENT_CALL_T report_call = {VX_FIFO_REPORT, "VX_FIFO_REPORT", TWO_ARGS};

static sockaddr_in service_address()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(SERVICE_PORT);
    address.sin_addr.s_addr = htonl(vx_ip_a2n(SERVICE_IP));
    return address;
}

static int send_command(int sock, const CLIENT_CALL_T &call, int ch, int arg0 = 0, int arg1 = 0)
{
    const SI5351_MSG_T message = {call.cmd, ch, {arg0, arg1}};
    const sockaddr_in service = service_address();
    const ssize_t sent = sendto(sock, &message, call.size, 0,
                                reinterpret_cast<const sockaddr *>(&service), sizeof(service));
    if (sent == static_cast<ssize_t>(call.size)) return 0;
    LOG_ERROR("send %s to<%s:%d> fd:%d error:%s", call.name, SERVICE_IP, SERVICE_PORT, sock,
              strerror(errno));
    return -1;
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

int send_set_param(int sock, int ch, int rate_hz)
{
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
