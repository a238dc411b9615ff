/* The command protocol: one datagram a command, to a fixed loopback endpoint. */
#pragma once

#ifndef __cplusplus
#error "This header is for C++; docs/protocol.md shows how to command the service from C."
#endif

#include <cstdint>

/* Where the service listens. */
inline constexpr const char *SERVICE_IP = "127.0.0.1";
inline constexpr int SERVICE_PORT = 11000;

/* Command codes; a channel record keeps the last one addressed to it as its status. */
enum VX_SI5351CMD_E : uint32_t {
    VX_SI5351_SET_PARAM = 0x1234, // set the sample rate; answered with an echo of 64 bytes
    VX_SI5351_SET_INC = 0x1235,   // trim the clock one step up
    VX_SI5351_SET_DEC = 0x1236,   // trim the clock one step down
    VX_SI5351_SET_RESET = 0x1237, // one step back towards the centre
    VX_FIFO_REPORT = 0x1238,      // FIFO size and fill, for the status file
    VX_SI5351_DUMP = 0x1239,      // answered with a listing of the three channels
};

/* One command datagram, in the machine's byte order. A sender may leave trailing words away. */
struct SI5351_MSG_T {
    uint32_t cmd;    // VX_SI5351CMD_E
    int32_t ch;      // channel, 1 to 3
    int32_t arg[14]; // set-param: rate in Hz; report: FIFO size, then fill; else 0
};
static_assert(sizeof(SI5351_MSG_T) == 64, "size on the wire");
