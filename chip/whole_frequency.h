/* The whole-frequency interface: sets an output to a frequency in hertz by moving PLL A and an even
 * integer divider. PLL A is shared, so every call moves the other two outputs as well; the service
 * itself trims by the multisynths alone. The caller of each function holds the engine lock. */
#pragma once

#include <cstdint>

/**
 * Sets an output multisynth to an integer ratio.
 * @param reg      first register of the block: 42, 50 or 58
 * @param divider  even integer ratio
 * @param rDiv     bits OR-ed into the third register as they are: an R divider code in bits 6-4
 */
void setupMultisynth(uint8_t reg, uint32_t divider, uint8_t rDiv);

/**
 * Sets PLL A and a channel's multisynth so that the output runs at a frequency.
 * @param ch         channel; for any other than 1 to 3 only PLL A is written
 * @param frequency  in Hz; 0 is logged and writes nothing
 */
void si5351aSetFrequency(int ch, uint32_t frequency);

/**
 * The same as setupPLL.
 */
void setupReg(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom);
