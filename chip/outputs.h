/* The chip's outputs: what feeds them, and where the registers of their multisynths lie. */
#pragma once

#include <cstdint>
#include <iterator>

/* Crystal and PLL A, which feeds all three outputs: crystal x (33 + 1/3). */
inline constexpr uint32_t CRYSTAL_HZ = 27000000;
inline constexpr uint8_t PLL_A_MULT = 33;
inline constexpr uint32_t PLL_A_NUM = 1;
inline constexpr uint32_t PLL_A_DENOM = 3;
inline constexpr uint32_t PLL_A_HZ = 900000000;
static_assert(uint64_t{PLL_A_HZ} * PLL_A_DENOM ==
                  uint64_t{CRYSTAL_HZ} * (PLL_A_MULT * PLL_A_DENOM + PLL_A_NUM),
              "PLL A in Hz, its ratio and the crystal belong together");

/* First of the eight registers of each channel's multisynth: channel 1 is MS0 on output CLK0, and
 * so on. */
inline constexpr uint8_t output_blocks[] = {42, 50, 58};
inline constexpr int CHANNEL_COUNT = std::size(output_blocks);

/* Denominator of every multisynth ratio: the largest that fits the chip's 20-bit field, and so the
 * finest trim. */
inline constexpr uint32_t RATIO_DENOM = 1048575;

/**
 * @return whether ch is 1, 2 or 3
 */
constexpr bool is_channel(int32_t ch)
{
    return ch >= 1 && ch <= CHANNEL_COUNT;
}

/**
 * @param ch  a valid channel, 1 to 3
 * @return the first register of its multisynth
 */
constexpr uint8_t output_block(int32_t ch)
{
    return output_blocks[ch - 1];
}
