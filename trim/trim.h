/* Trim stepping: moves a channel's clock by single steps, and writes it to the chip. */
#pragma once

#include "trim/channels.h"

/* A trim takes two calls: a step in the record, and on its result 0 the write to the chip. The
 * caller of each holds the engine lock. */

/**
 * Moves a channel one trim step towards a faster clock, in the record only.
 * @param conf  the channel's record; its count is the position in steps, -24 (fastest) to 24
 * @return 0 moved, now write the chip; 1 already fastest (logged), unchanged;
 *         -1 null, or a record whose channel or rate is invalid (logged), unchanged
 */
int vx_si5351_conf_inc(SI5351_CONF_T *conf);

/**
 * Moves a channel one trim step towards a slower clock, in the record only.
 * @param conf  the channel's record
 * @return as vx_si5351_conf_inc; 1 means already slowest
 */
int vx_si5351_conf_dec(SI5351_CONF_T *conf);

/**
 * Logs a record and writes the multisynth of its channel to the chip.
 * @param conf  the channel's record
 * @return 0, also when the bus failed (logged by the bus access); -1 null
 */
int vx_si5351_param_inc_dec2(SI5351_CONF_T *conf);

/**
 * Writes a channel's multisynth from its record. Any other channel than 1 to 3 is logged and
 * writes nothing.
 * @param ch  channel
 */
void setReg(int32_t ch);

/**
 * One step faster, in the record and on the chip.
 * @param ch  channel; any other than 1 to 3 changes nothing
 * @return 0
 */
int vx_si5351_increase(int32_t ch);

/**
 * One step slower, in the record and on the chip.
 * @param ch  channel; any other than 1 to 3 changes nothing
 * @return 0
 */
int vx_si5351_decrease(int32_t ch);
