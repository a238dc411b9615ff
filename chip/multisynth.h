/* The chip's dividers: turns a ratio a + b/c into the eight registers of a block and writes them.
 * The caller of each writing function holds the engine lock. */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

inline constexpr uint8_t PLL_A_BLOCK = 26; // first register of PLL A's feedback divider

/* The parameters of a ratio a + b/c as the chip takes them. By its published register map: P1 = 128
 * a + floor(128 b/c) - 512, P2 = 128 b - c floor(128 b/c), P3 = c. */
struct DIVIDER_T {
    uint32_t p1; // 18 bits reach the chip
    uint32_t p2; // 20 bits
    uint32_t p3; // 20 bits
};

using DIVIDER_BLOCK_T = std::array<uint8_t, 8>;

/**
 * Works out the parameters of a ratio.
 * @param mult   integer part
 * @param num    fraction numerator
 * @param denom  fraction denominator, 1 to 1048575
 */
constexpr DIVIDER_T divide_by(uint8_t mult, uint32_t num, uint32_t denom)
{
    /* Single precision on purpose: 1023999/1048575 gives f = 125 here, but 124 in double. The cast
     * goes through 64 bits because a quotient beyond 32 bits would be undefined. */
    const float fraction = static_cast<float>(num) / static_cast<float>(denom);
    const auto f = static_cast<uint32_t>(static_cast<uint64_t>(fraction * 128.0F));
    return {128U * mult - 512U + f, 128U * num - denom * f, denom};
}

/**
 * Packs the parameters of a divider into the bytes of its block:
 *   +0  P3 15-8
 *   +1  P3 7-0
 *   +2  R divider code in bits 6-4 (outputs only) | divide by 4, never set | P1 17-16
 *   +3  P1 15-8
 *   +4  P1 7-0
 *   +5  P3 19-16 | P2 19-16
 *   +6  P2 15-8
 *   +7  P2 7-0
 * @param divider  P1, P2 and P3; bits beyond the chip's fields are dropped
 * @param r_bits   more bits of the third byte: an output's R divider code in bits 6-4, else 0
 */
constexpr DIVIDER_BLOCK_T pack_divider(const DIVIDER_T &divider, uint8_t r_bits)
{
    const auto [p1, p2, p3] = divider;
    const uint32_t bytes[] = {p3 >> 8, p3, r_bits | (p1 >> 16 & 0x03),
                              p1 >> 8, p1, (p3 >> 16 & 0x0F) << 4 | (p2 >> 16 & 0x0F),
                              p2 >> 8, p2};
    DIVIDER_BLOCK_T block{};
    for (size_t i = 0; i < block.size(); i++)
        block[i] = static_cast<uint8_t>(bytes[i]); // the low 8 bits
    return block;
}

/**
 * Writes a block upwards, each register in a transaction of its own. A register that fails is
 * logged by the bus access, and the next one is still written.
 * @param reg       first register of the block
 * @param bytes     its content
 * @param pause_us  time to sleep after each register, written or failed
 */
void write_block(uint8_t reg, const DIVIDER_BLOCK_T &bytes, unsigned pause_us = 0);

/**
 * Sets a PLL's feedback divider to mult + num / denom.
 * @param reg    first register of the block: 26 for PLL A
 * @param mult   integer part
 * @param num    fraction numerator
 * @param denom  fraction denominator, up to 1048575; 0 is logged and writes nothing
 */
void setupPLL(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom);

/**
 * Sets an output multisynth to divide by mult + num / denom, and then by 2^div.
 * @param reg    first register of the block: 42, 50 or 58
 * @param mult   integer part
 * @param num    fraction numerator
 * @param denom  fraction denominator, up to 1048575; 0 is logged and writes nothing
 * @param div    R divider code, 0 to 7
 */
void Multisynth(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom, uint8_t div);
