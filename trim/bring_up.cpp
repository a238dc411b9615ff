/* Bring-up: the register table, PLL A, and then the outputs from the channel records. */
#include "trim/bring_up.h"

#include "chip/fixed_table.h"
#include "chip/multisynth.h"
#include "chip/register_table.h"
#include "trim/channels.h"
#include "trim/trim.h"

int vx_si5351_init()
{
    write_register_table();
    setupPLL(PLL_A_BLOCK, PLL_A_MULT, PLL_A_NUM, PLL_A_DENOM);
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++)
        write_output(ch);
    ch_param = {};
    return 1;
}

int vx_si5351_start()
{
    vx_si5351_init();
    return 0;
}
