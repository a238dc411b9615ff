/* What is known of a command code: its word and what it does to a channel's trim. */
#pragma once

#include <cstdint>

#include "trim/commands.h"

/* What a command does to the trim: one step. For faster and slower the value is the sign of the
 * change of count and numerator: a larger numerator makes a slower clock. */
enum MOVE_E : int32_t { MOVE_FASTER = -1, NO_MOVE = 0, MOVE_SLOWER = 1, MOVE_TO_CENTRE = 2 };

struct COMMAND_ROW_T {
    const char *word; // in logs and dumps
    MOVE_E move;
};

/* The one place where a command is entered. There is no default, so that a new code without a row
 * does not build. */
constexpr COMMAND_ROW_T command_row(VX_SI5351CMD_E code)
{
    // clang-format off
    switch (code) {
    case VX_SI5351_SET_PARAM: return {"set param", NO_MOVE};
    case VX_SI5351_SET_INC:   return {"increase",  MOVE_FASTER};
    case VX_SI5351_SET_DEC:   return {"decrease",  MOVE_SLOWER};
    case VX_SI5351_SET_RESET: return {"reset",     MOVE_TO_CENTRE};
    case VX_FIFO_REPORT:      return {"report",    NO_MOVE};
    case VX_SI5351_DUMP:      return {"dump",      NO_MOVE};
    }
    // clang-format on
    return {"unknonw", NO_MOVE}; // spelled so in every log and dump
}

/**
 * @param status  a command code
 * @return its word in logs and dumps; "unknonw" for a value that is no command code
 */
const char *get_status_si53512(VX_SI5351CMD_E status);
