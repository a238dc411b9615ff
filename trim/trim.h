/* Trim stepping: moves a channel's clock by single steps, and writes it to the chip. The caller of
 * each function holds the engine lock. */
#pragma once

#include "trim/channels.h"

/**
 * Does what a command says to a channel, for a datagram and for a text in the pipe alike: stores it
 * as the channel's status, and then trims one step faster, slower or back towards the centre, in
 * the record and on the chip. A command that does not trim changes the status only.
 * @param ch            channel; any other than 1 to 3 changes nothing
 * @param command       command code
 * @param reaches_chip  false: only the status changes
 */
void drive_channel(int32_t ch, VX_SI5351CMD_E command, bool reaches_chip);

/**
 * Writes a channel's multisynth from its record.
 * @param ch  a valid channel, 1 to 3
 */
void write_output(int32_t ch);

/* The single calls. One trim needs two of them: a step in the record and, when that gave 0, the
 * write to the chip. */

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

/**
 * Moves a channel one trim step back towards its centre, in the record and on the chip, and logs
 * where it stands. At the centre it does nothing.
 * @param ch  channel; any other than 1 to 3 changes nothing
 * @return 0
 */
int vx_si5351_reset_chn2(int32_t ch);

/**
 * Moves every channel whose last command was a reset one more step towards its centre. A channel
 * whose value is then 0 gets the status of a rate change.
 */
void handle_reset_stat();

/**
 * Sets a channel's output to the frequency, in Hz, of the sum of its record's defVal and value.
 * This moves PLL A, and with it the other two outputs.
 * @param ch       channel; any other than 1 to 3 is logged and writes nothing
 * @param unused1  not used
 * @param unused2  not used
 * @return 0
 */
int vx_si5351_param_inc_dec(int ch, int unused1, int unused2);
