/* The command service: one loop that waits for a datagram, logs it and acts on it by one table. */
#include "service/command_service.h"

#include <arpa/inet.h>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

#include "chip/i2c_access.h"
#include "log/log.h"
#include "net/vx_net_api.h"
#include "service/status_file.h"
#include "trim/rate.h"
#include "trim/trim.h"

static constexpr int MESSAGE_SIZE = sizeof(SI5351_MSG_T);
static constexpr int WAIT_MS = 2000;
static constexpr unsigned SOCKET_RETRY_S = 2;
static constexpr useconds_t DUMP_PAUSE_US = 10000;

static void hold_rate(SERVICE_T *service)
{
    service->ch = service->message.ch;
    service->rate_hz = service->message.arg[0];
}

static void hold_fifo(SERVICE_T *service)
{
    service->ch = service->message.ch;
    service->fifo_total = service->message.arg[0];
    service->fifo_used = service->message.arg[1];
}

static void send_text(const SERVICE_T *service, const char *text, size_t length)
{
    // Nobody to tell when the sender is gone.
    (void)vx_udp_send(service->sock, text, static_cast<int>(length), &service->sender);
}

static void send_dump(SERVICE_T *service)
{
    static constexpr char heading[] = "5351 info\n";
    send_text(service, heading, sizeof(heading) - 1);
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        char line[RECORD_LINE_SIZE];
        const size_t length = format_record(line, copy_record(ch));
        send_text(service, line, length);
        usleep(DUMP_PAUSE_US);
    }
}

static bool is_enabled()
{
    return g_s32EnableSi5351 != 0;
}

/* The echo goes out before the rate is applied: it confirms receipt, not success. */
static void act_set_param(SERVICE_T *service)
{
    (void)sendto(service->sock, &service->message, MESSAGE_SIZE, 0,
                 reinterpret_cast<const sockaddr *>(&service->sender), sizeof(service->sender));

    const std::lock_guard lock(g_engine_lock);
    if (is_enabled()) (void)vx_si5351_set_param(service->ch, service->rate_hz); // logs a refusal
    LOG_INFO("set param ch:%d rate:%d", service->ch, service->rate_hz);
    set_chn_stat(service->ch, VX_SI5351_SET_PARAM);
}

static void drive_channel(SERVICE_T *service, VX_SI5351CMD_E command, int (*operation)(int32_t ch))
{
    const std::lock_guard lock(g_engine_lock);
    set_chn_stat(service->ch, command);
    if (is_enabled()) operation(service->ch);
}

static void act_increase(SERVICE_T *service)
{
    drive_channel(service, VX_SI5351_SET_INC, vx_si5351_increase);
}

static void act_decrease(SERVICE_T *service)
{
    drive_channel(service, VX_SI5351_SET_DEC, vx_si5351_decrease);
}

static void act_reset(SERVICE_T *service)
{
    drive_channel(service, VX_SI5351_SET_RESET, vx_si5351_reset_chn2);
}

static void act_report(SERVICE_T *service)
{
    {
        const std::lock_guard lock(g_engine_lock);
        set_fifo_stat(service->ch, service->fifo_total, service->fifo_used);
    }
    (void)dump2json();
}

/* What a command takes from its datagram before the log line, and does after it. */
struct COMMAND_ROW_T {
    VX_SI5351CMD_E cmd;
    void (*take)(SERVICE_T *service);
    void (*act)(SERVICE_T *service); // null: all done by then
};
// clang-format off
static constexpr COMMAND_ROW_T command_rows[] = {
    {VX_SI5351_SET_PARAM, hold_rate, act_set_param},
    {VX_SI5351_SET_INC,   hold_rate, act_increase},
    {VX_SI5351_SET_DEC,   hold_rate, act_decrease},
    {VX_SI5351_SET_RESET, hold_rate, act_reset},
    {VX_FIFO_REPORT,      hold_fifo, act_report},
    {VX_SI5351_DUMP,      send_dump, nullptr},
};
// clang-format on

static const COMMAND_ROW_T *find_command(uint32_t cmd)
{
    for (const COMMAND_ROW_T &row : command_rows) {
        if (row.cmd == cmd) return &row;
    }
    return nullptr;
}

static void log_datagram(const SERVICE_T *service)
{
    char ip[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &service->sender.sin_addr, ip, sizeof(ip)); // the buffer fits
    const uint32_t cmd = service->message.cmd;
    LOG_INFO("recv from %s:%d ch:%d cmd:0x%x-%s", ip, ntohs(service->sender.sin_port), service->ch,
             cmd, get_status_si53512(static_cast<VX_SI5351CMD_E>(cmd)));
}

static void act_on_datagram(SERVICE_T *service)
{
    const COMMAND_ROW_T *row = find_command(service->message.cmd);
    if (row == nullptr) LOG_ERROR("unknown cmd:0x%x", service->message.cmd);
    if (row != nullptr) row->take(service);
    log_datagram(service);
    if (row != nullptr && row->act != nullptr) row->act(service);
}

/* vx_udp_recv refuses a datagram larger than a message and leaves it first in the queue. */
static void drop_oversized(int sock)
{
    int size = 0;
    if (ioctl(sock, FIONREAD, &size) != 0 || size <= MESSAGE_SIZE) return;
    char byte = 0;
    (void)vx_udp_recv2(sock, &byte, sizeof(byte), 0, nullptr, nullptr); // the rest is cut off
}

static bool receive_datagram(SERVICE_T *service)
{
    service->sender.sin_family = AF_UNSPEC;
    service->sender_size = sizeof(service->sender);
    const int length = vx_udp_recv(service->sock, &service->message, MESSAGE_SIZE, 0,
                                   &service->sender, &service->sender_size);
    if (length > 0) return true;
    // An empty datagram has a sender and is gone; without a sender, the next one is still waiting.
    if (service->sender.sin_family == AF_UNSPEC) drop_oversized(service->sock);
    return false;
}

int udp_socket_create(const char *ip, int port)
{
    if (ip == nullptr) return -1;
    int sock = vx_create_sock(VX_SOCK_DATAGRAM);
    if (sock >= FD_SETSIZE) vx_close_socket(&sock); // none that vx_select can wait for
    if (sock < 1) {
        LOG_ERROR("create socket<%s:%d> err", ip, port);
        return -1;
    }
    (void)vx_set_sock_noblock(sock); // a blocking one serves as well: only a ready one is read
    if (vx_bind_sock(sock, vx_ip_a2n(ip), port) >= 0) return sock;
    vx_close_socket(&sock);
    LOG_ERROR("bind socket<%s:%d> err", ip, port);
    return -1;
}

static int await_command_socket()
{
    for (;;) {
        const int sock = udp_socket_create(SERVICE_IP, SERVICE_PORT);
        if (sock > 0) return sock;
        sleep(SOCKET_RETRY_S);
    }
}

void si5351_svr_start()
{
    {
        const std::lock_guard lock(g_engine_lock);
        (void)I2C_Init(I2C_BUS_PATH); // logs its failure; the next write tries again
    }
    SERVICE_T service = {};
    service.sock = await_command_socket();
    for (;;)
        serve_datagram(&service);
}

void serve_datagram(SERVICE_T *service)
{
    const int ready = vx_select(&service->sock, 1, VX_WAIT_READABLE, WAIT_MS);
    if (ready != (service->sock | VX_IS_READABLE)) return;
    if (receive_datagram(service)) act_on_datagram(service);
}
