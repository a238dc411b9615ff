/* The word of a command code, for the logs. */
#include "trim/command_table.h"

const char *get_status_si53512(VX_SI5351CMD_E status)
{
    return command_row(status).word;
}
