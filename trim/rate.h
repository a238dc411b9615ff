/* Rate change and reset of a channel. The caller of each function holds the engine lock. */
#pragma once

#include "trim/channels.h"

/**
 * Sets a channel's record for a sample rate: nominal ratio, centre of the trim range, no learned
 * centre, and the trim step that the step table now holds for the rate. Does not touch the chip.
 * @param ch       channel; any other than 1 to 3 is logged and changes nothing
 * @param rate_hz  sample rate; one that is not supported is logged, stays in the record with value
 *                 and xValue 0, and bars the channel from trimming until a supported one is set
 * @return 0, or -1 when channel or rate was refused
 */
int vx_si5351_set_conf(int32_t ch, int32_t rate_hz);

/**
 * Sets a channel's sample rate, in the record and on the chip.
 * @param ch       as vx_si5351_set_conf
 * @param rate_hz  as vx_si5351_set_conf
 * @return 0, also when the bus failed (logged by the bus access); -1 when channel or rate was
 *         refused (logged), the chip then being left as it was
 */
int vx_si5351_set_param(int32_t ch, int32_t rate_hz);

/**
 * Moves a channel one trim step back towards its centre, in the record and on the chip, and logs
 * where it stands. At the centre it does nothing.
 * @param ch  channel; any other than 1 to 3 changes nothing
 * @return 0
 */
int vx_si5351_reset_chn2(int32_t ch);

/**
 * Resets every channel whose last command was a reset by one step, and marks those whose value
 * is 0 as set.
 */
void handle_reset_stat();
