/* Rate change of a channel. The caller of each function holds the engine lock. */
#pragma once

#include "trim/channels.h"

/**
 * Sets a channel's record for a sample rate: nominal ratio, centre of the trim range, no learned
 * centre, and the trim step that the step table now holds for the rate. Does not touch the chip.
 * @param ch       channel; any other than 1 to 3 is logged and changes nothing
 * @param rate_hz  sample rate. One that is not supported is logged; the record keeps it, with value
 *                 and xValue 0, and the channel cannot be trimmed until a supported one is set
 * @return 0, or -1 when channel or rate was refused
 */
int vx_si5351_set_conf(int32_t ch, int32_t rate_hz);

/**
 * Sets a channel's sample rate, in the record and on the chip.
 * @param ch       as vx_si5351_set_conf
 * @param rate_hz  as vx_si5351_set_conf
 * @return 0, also when the bus failed (logged by the bus access); -1 when channel or rate was
 *         refused (logged): the chip then stays as it was
 */
int vx_si5351_set_param(int32_t ch, int32_t rate_hz);

/**
 * An older reset: puts a channel's record back at the record's sample rate and its output at that
 * rate's nominal frequency by the fixed table, and logs it. A channel whose value is 0, as after a
 * refused rate, stays as it is.
 * @param ch  channel; any other than 1 to 3 changes nothing
 * @return 0
 */
int vx_si5351_reset_chn(int ch);
