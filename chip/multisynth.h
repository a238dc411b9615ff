/* The chip's dividers: turns a ratio a + b/c into the eight registers of a block and writes them.
 * The caller of each writing function holds the engine lock. */
#pragma once

#include <array>
#include <cstdint>

inline constexpr uint32_t CRYSTAL_HZ = 27000000;
inline constexpr uint32_t PLL_A_HZ = 900000000; // crystal x (33 + 1/3)
inline constexpr uint8_t PLL_A_BLOCK = 26;      // first register of PLL A's feedback divider

/* What a divider block holds of a ratio; the formulas are those of the chip's published register
 * map: P1 = 128 a + floor(128 b/c) - 512, P2 = 128 b - c floor(128 b/c), P3 = c. */
struct DIVIDER_T {
    uint32_t p1; // 18 bits reach the chip
    uint32_t p2; // 20 bits
    uint32_t p3; // 20 bits
};

using DIVIDER_BLOCK_T = std::array<uint8_t, 8>;

/**
 * Packs the parameters of a divider into the bytes of its block.
 * @param divider  P1, P2 and P3; bits beyond the chip's fields are dropped
 * @param r_bits   bits OR-ed into the third byte, above P1: an output's R divider code in bits 6-4,
 *                 else 0
 */
DIVIDER_BLOCK_T pack_divider(const DIVIDER_T &divider, uint8_t r_bits);

/**
 * Writes a block, each register in a transaction of its own, ascending. A register that fails is
 * logged by the bus access, and the next one is written all the same.
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
