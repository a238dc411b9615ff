/* The command service: one loop that waits for a datagram, logs it and acts on it by one table. */
#include "service/command_service.h"

#include <arpa/inet.h>
#include <cstdio>
#include <unistd.h>

#include "chip/i2c_access.h"
#include "log/log.h"
#include "net/vx_net_api.h"
#include "service/message.h"
#include "service/status_file.h"
#include "trim/command_table.h"
#include "trim/rate.h"
#include "trim/record_text.h"
#include "trim/trim.h"

static constexpr int WAIT_MS = 2000;
static constexpr unsigned SOCKET_RETRY_S = 2;
static constexpr useconds_t DUMP_PAUSE_US = 10000;

void (*g_on_pass)();

static void hold_channel_and_rate(SERVICE_T *service)
{
    service->ch = service->message.ch;
    service->rate_hz = service->message.arg[0];
}

static void hold_channel_and_fifo(SERVICE_T *service)
{
    service->ch = service->message.ch;
    service->fifo_total = service->message.arg[0];
    service->fifo_used = service->message.arg[1];
}

static void send_text(const SERVICE_T *service, const char *text, size_t length)
{
    // On failure the sender is gone; nothing is left to do.
    (void)vx_udp_send(service->sock, text, static_cast<int>(length), &service->sender);
}

static void send_dump(SERVICE_T *service)
{
    static constexpr char heading[] = "5351 info\n";
    send_text(service, heading, sizeof(heading) - 1);
    for (size_t i = 0; i < CHANNEL_COUNT; i++) {
        char line[RECORD_LINE_SIZE];
        const size_t length = format_record(line, copy_state().records[i]);
        send_text(service, line, length);
        usleep(DUMP_PAUSE_US);
    }
}

static bool is_enabled()
{
    return g_s32EnableSi5351 != 0;
}

/* The echo goes out before the rate is set: it says that the command has arrived, not that it was
 * accepted. */
static void set_rate(SERVICE_T *service)
{
    (void)sendto(service->sock, &service->message, sizeof(service->message), 0,
                 reinterpret_cast<const sockaddr *>(&service->sender), sizeof(service->sender));

    const std::lock_guard lock(g_engine_lock);
    if (is_enabled()) (void)vx_si5351_set_param(service->ch, service->rate_hz); // logs a refusal
    LOG_INFO("set param ch:%d rate:%d", service->ch, service->rate_hz);
    set_chn_stat(service->ch, VX_SI5351_SET_PARAM);
}

static void trim_channel(SERVICE_T *service)
{
    const std::lock_guard lock(g_engine_lock);
    drive_channel(service->ch, static_cast<VX_SI5351CMD_E>(service->message.cmd), is_enabled());
}

static void report_fifo(SERVICE_T *service)
{
    {
        const std::lock_guard lock(g_engine_lock);
        set_fifo_stat(service->ch, service->fifo_total, service->fifo_used);
    }
    (void)dump2json();
}

static void log_unknown(SERVICE_T *service)
{
    LOG_ERROR("unknown cmd:0x%x", service->message.cmd);
}

static void do_nothing(SERVICE_T * /*unused*/)
{
}

/* What the service does with a datagram, before and after it logs it. */
struct SERVICE_ROW_T {
    void (*before_log)(SERVICE_T *service);
    void (*after_log)(SERVICE_T *service);
};

/* There is no default, so that a new code without a row does not build. */
static SERVICE_ROW_T service_row(VX_SI5351CMD_E cmd)
{
    // clang-format off
    switch (cmd) {
    case VX_SI5351_SET_PARAM: return {hold_channel_and_rate, set_rate};
    case VX_SI5351_SET_INC:
    case VX_SI5351_SET_DEC:
    case VX_SI5351_SET_RESET: return {hold_channel_and_rate, trim_channel};
    case VX_FIFO_REPORT:      return {hold_channel_and_fifo, report_fifo};
    case VX_SI5351_DUMP:      return {send_dump, do_nothing};
    }
    // clang-format on
    return {log_unknown, do_nothing};
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
    const SERVICE_ROW_T row = service_row(static_cast<VX_SI5351CMD_E>(service->message.cmd));
    row.before_log(service);
    log_datagram(service);
    row.after_log(service);
}

int udp_socket_create(const char *ip, int port)
{
    if (ip == nullptr) return -1;
    int sock = vx_create_sock(VX_SOCK_DATAGRAM);
    if (sock >= FD_SETSIZE) vx_close_socket(&sock); // vx_select cannot wait for it
    if (sock < 1) {
        LOG_ERROR("create socket<%s:%d> err", ip, port);
        return -1;
    }
    (void)vx_set_sock_noblock(sock); // one that blocks does no harm: it is read only when ready
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
    for (;;) {
        if (g_on_pass != nullptr) g_on_pass();
        serve_datagram(&service);
    }
}

void serve_datagram(SERVICE_T *service)
{
    const int ready = vx_select(&service->sock, 1, VX_WAIT_READABLE, WAIT_MS);
    if (ready != (service->sock | VX_IS_READABLE)) return;
    if (receive_message(service->sock, &service->message, &service->sender) > 0)
        act_on_datagram(service);
}
