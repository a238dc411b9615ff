/* What a supervisor is told of the service, as systemd's sd_notify(3) describes it. */
#include "entry/supervisor.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "chip/i2c_access.h"
#include "net/vx_net_api.h"
#include "service/command_service.h"
#include "service/status_file.h"

static constexpr size_t TEXT_SIZE = 256;
static constexpr int64_t PAUSE_US = 1000000;
static constexpr int SOCK_LOCAL_DATAGRAM = 4;

/* Set before the service thread starts. */
static const char *socket_path;
static int64_t watchdog_us; // 0: there is none
static uint32_t failed_at_start;

/* Written by the service thread. */
static char told_status[TEXT_SIZE]; // empty: not even READY
static int64_t next_us;             // when to look again
static int64_t watchdog_due_us;

static int64_t read_clock_us()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

static bool send_message(const char *text)
{
    int sock = vx_create_sock(SOCK_LOCAL_DATAGRAM);
    (void)vx_set_sock_noblock(sock); // a supervisor that is held up must not hold up the service
    const auto length = static_cast<int>(strlen(text));
    const bool sent = vx_local_udp_send(sock, socket_path, text, length) == length;
    (void)vx_close_socket(&sock); // nothing is kept in it
    return sent;
}

static void format_status(char *status, const char *state)
{
    const uint32_t failed = g_failed_writes;
    const int length =
        snprintf(status, TEXT_SIZE,
                 "%s; register writes failed: %" PRIu32 " at the start, %" PRIu32 " since", state,
                 failed_at_start, failed - failed_at_start);
    const STATUS_FAULT_T fault = g_status_fault;
    if (fault.path == nullptr) return;
    (void)snprintf(status + length, TEXT_SIZE - static_cast<size_t>(length),
                   "; status file not written: %s: %s", fault.path, strerror(fault.error));
}

/* status has TEXT_SIZE bytes */
static bool send_status(const char *status)
{
    char text[TEXT_SIZE + 64];
    (void)snprintf(text, sizeof(text), "%sSTATUS=%s\nWATCHDOG=1",
                   told_status[0] == '\0' ? "READY=1\n" : "", status);
    if (!send_message(text)) return false;
    memcpy(told_status, status, TEXT_SIZE);
    return true;
}

static void report_pass()
{
    const int64_t now_us = read_clock_us();
    if (now_us < next_us) return;
    next_us = now_us + PAUSE_US;
    char status[TEXT_SIZE] = "";
    format_status(status, "serving");
    const bool changed = strcmp(status, told_status) != 0;
    const bool watchdog_due = watchdog_us > 0 && now_us >= watchdog_due_us;
    if (!changed && !watchdog_due) return;
    if (changed ? send_status(status) : send_message("WATCHDOG=1"))
        watchdog_due_us = now_us + watchdog_us / 4;
}

void report_to_supervisor()
{
    socket_path = getenv("NOTIFY_SOCKET");
    if (socket_path == nullptr) return;
    const char *limit_us = getenv("WATCHDOG_USEC");
    if (limit_us != nullptr) watchdog_us = strtoll(limit_us, nullptr, 10);
    failed_at_start = g_failed_writes;

    char text[TEXT_SIZE + 64] = "STATUS=";
    format_status(text + strlen(text), "waiting for its port");
    (void)send_message(text); // the first pass says more
    g_on_pass = report_pass;
}
