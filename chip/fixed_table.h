/* Table-driven clock setting: sets an output to its nominal frequency, or to an exact number of
 * hertz above or below it, from tables of parameters. PLL A must run at 900 MHz, as after bring-up.
 *
 * The service does not use it: it trims by the multisynth ratio, without pauses. Here each write of
 * a block pauses 0.8 ms in all. The caller of every function below holds the engine lock meanwhile.
 *
 * Nominal outputs are 22579000 Hz (44.1 kHz family, 8.9 ppm below 128 x 176400) or 24576000 Hz
 * (48 kHz family) by 4, 2 or 1. An offset is absolute: each call sets the nominal frequency plus or
 * minus the key, wherever the output was. Keys are 300, 600, ... 2400 Hz of the output. */
#pragma once

#include <cstdint>

#include "chip/multisynth.h"

/* One setting of an output; all four are 32-bit words. */
struct CH_PARAM_T {
    uint32_t div;      // R divider code: output divided by 2^div; 3 bits reach the chip
    DIVIDER_T divider; // P1, P2 and P3 of the multisynth
};
static_assert(sizeof(CH_PARAM_T) == 16, "four words");

/* The setting that was stored last, for any channel, and that the next write sends. Bring-up clears
 * it. The engine lock guards it: hold the lock from a store to its write. */
extern CH_PARAM_T ch_param;

/**
 * Sets a channel's output to the nominal frequency of a sample rate.
 * @param ch    channel; for any other than 1 to 3 only ch_param is set
 * @param rate  sample rate in Hz; for one that is not supported "rate:%d error\n" goes to standard
 *              output and nothing changes
 * @return 1, also when the bus failed (logged by the bus access); 0 when the rate was refused
 */
int vx_si5351_set(int ch, int rate);

/**
 * Sets a channel's output to the nominal frequency of a sample rate plus a key. A refused key does
 * not change P1 to P3 in ch_param, and a refused rate changes nothing in it. The channel's block is
 * written from ch_param in every case.
 * @param ch    channel; for any other than 1 to 3 only ch_param is set
 * @param rate  sample rate in Hz
 * @param key   300, 600, ... 2400 Hz
 * @return 1, also when the bus failed (logged by the bus access); 0 when rate or key was refused
 */
int vx_si5351_param_inc_set(int ch, int rate, int key);

/**
 * The same with the nominal frequency minus a key.
 */
int vx_si5351_param_dec_set(int ch, int rate, int key);

/* From here on internal to the driver. */

/* One set of a table of 16; all four are 32-bit words. */
struct MSP_ROW_T {
    uint32_t row; // its position, 0 to 15
    DIVIDER_T divider;
};
inline constexpr int MSP_ROW_COUNT = 16;

/* Raise and lower a multisynth output of 22579000 Hz, by 300 Hz in row 0 to 9600 Hz in row 15. */
extern const MSP_ROW_T mclk_msp_22579000_inc[MSP_ROW_COUNT];
extern const MSP_ROW_T mclk_msp_22579000_dec[MSP_ROW_COUNT];

/**
 * Stores P1 to P3 of a raised output of the 44.1 kHz family in ch_param, not the R divider code.
 * @param key   300, 600, ... 2400 Hz
 * @param rate  44100, 88200 or 176400 Hz
 * @return 1; 0 for any other key or rate, nothing then being stored
 */
int vx_si5351_param_44100x_inc_set(int key, int rate);

/**
 * The same for a lowered output.
 */
int vx_si5351_param_44100x_dec_set(int key, int rate);

/**
 * Writes ch_param to a channel's block, with a pause of 100 us after each of the eight registers.
 * Failures are logged by the bus access, and the next register is written all the same.
 * @param ch  channel; any other than 1 to 3 writes nothing
 */
void si5351_channel_param_set(int ch);
