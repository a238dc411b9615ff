/* The command protocol: one datagram a command, to a fixed loopback endpoint. */
#pragma once

#ifndef __cplusplus
#error "C++ only: a C program sends the datagrams that docs/protocol.md describes"
#endif

#include <cstdint>

#include "trim/commands.h"

/* Where the service listens. */
inline constexpr const char *SERVICE_IP = "127.0.0.1";
inline constexpr int SERVICE_PORT = 11000;

/* One command datagram, in the machine's byte order. A sender may leave out words at the end. */
struct SI5351_MSG_T {
    uint32_t cmd;    // VX_SI5351CMD_E
    int32_t ch;      // channel, 1 to 3
    int32_t arg[14]; // set-param: rate in Hz; report: FIFO size, then fill; else 0
};
static_assert(sizeof(SI5351_MSG_T) == 64, "size on the wire");
