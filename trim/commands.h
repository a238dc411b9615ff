/* The command codes, in datagrams and in the status of a channel. */
#pragma once

#ifndef __cplusplus
#error "This header is for C++; docs/protocol.md shows how to command the service from C."
#endif

#include <cstdint>

enum VX_SI5351CMD_E : uint32_t {
    VX_SI5351_SET_PARAM = 0x1234, // set the sample rate; answered with an echo of 64 bytes
    VX_SI5351_SET_INC = 0x1235,   // trim the clock one step faster
    VX_SI5351_SET_DEC = 0x1236,   // trim the clock one step slower
    VX_SI5351_SET_RESET = 0x1237, // one step back towards the centre
    VX_FIFO_REPORT = 0x1238,      // FIFO size and fill, for the status file
    VX_SI5351_DUMP = 0x1239,      // answered with a listing of the three channels
};
