/* Bring-up of the chip at start. */
#pragma once

/**
 * Programs the chip afresh: the register table, PLL A at 900 MHz, then the three output multisynths
 * from the channel records; 103 register writes, every one attempted, each failure logged by the
 * bus access. Logs nothing when all goes well. At the end it clears ch_param, the setting last
 * stored by the table-driven operations. The caller holds the engine lock.
 * @return 1
 */
int vx_si5351_init();

/**
 * Brings the chip up. The caller holds the engine lock.
 * @return 0
 */
int vx_si5351_start();
