/* What a Si5351A makes of its registers: the exact frequency of each output. Plain functions over a
 * register image, written from the chip's register map alone: they share nothing with the code that
 * fills the registers, so that one can check the other. */
#pragma once

#include <cstdint>

constexpr int SI5351_REGISTER_COUNT = 256;
constexpr int SI5351_OUTPUT_COUNT = 3; // the ten-pin part has CLK0 to CLK2

/* The first and the last of the five blocks of eight parameter registers, which follow each other:
 * PLL A 26, PLL B 34, output dividers 42, 50 and 58. */
constexpr int SI5351_BLOCK_SIZE = 8;
constexpr int SI5351_FIRST_BLOCK = 26;
constexpr int SI5351_LAST_BLOCK = 58;

__extension__ using uint128_t = unsigned __int128;

/* A frequency in Hz as the fraction num/den in lowest terms; num 0 means no clock. */
struct SI5351_CLOCK_T {
    uint128_t num;
    uint128_t den;
};

/**
 * Decodes the frequency of an output.
 * @param registers  the 256 registers; any content is allowed
 * @param output     0 to 2, for CLK0 to CLK2
 * @return the frequency; 0/1 when the output is disabled or powered down, when a divider on its way
 *         has P3 = 0, when its source is not on this chip, or when there is no such output
 */
SI5351_CLOCK_T decode_output_clock(const uint8_t *registers, int output);

/**
 * Decodes the frequency of a PLL.
 * @param registers  the 256 registers; any content is allowed
 * @param pll        0 or 1, for PLL A and B
 * @return the frequency, not in lowest terms; num 0 when its block has P3 = 0 or its source is not
 *         on this chip
 */
SI5351_CLOCK_T decode_pll_clock(const uint8_t *registers, int pll);

/** @return whether both are the same frequency, exactly */
bool is_same_clock(const SI5351_CLOCK_T &left, const SI5351_CLOCK_T &right);

/** @return the frequency in Hz, 0 for no clock */
double get_clock_hz(const SI5351_CLOCK_T &clock);

/**
 * Compares a frequency with the nearest master clock, 128 times a sample rate.
 * @param hz       frequency of an output
 * @param rate_hz  set to that rate: 44100, 48000, 88200, 96000, 176400 or 192000 Hz
 * @return how far hz lies above (+) or below (-) the master clock, in ppm
 */
double get_offset_ppm(double hz, int *rate_hz);
