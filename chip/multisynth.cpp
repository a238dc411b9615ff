/* The chip's dividers: the parameters of a ratio, their eight registers, the writing of them. */
#include "chip/multisynth.h"

#include <unistd.h>

#include "chip/i2c_access.h"
#include "log/log.h"

/* Block of eight registers, bit numbers of the parameters:
 *   +0  P3 15-8
 *   +1  P3 7-0
 *   +2  R divider code in bits 6-4 (outputs only) | divide by 4, never set | P1 17-16
 *   +3  P1 15-8
 *   +4  P1 7-0
 *   +5  P3 19-16 | P2 19-16
 *   +6  P2 15-8
 *   +7  P2 7-0 */
DIVIDER_BLOCK_T pack_divider(const DIVIDER_T &divider, uint8_t r_bits)
{
    const auto bits = [](uint32_t p, int shift, uint32_t mask) { return (p >> shift) & mask; };
    const auto byte = [](uint32_t b) { return static_cast<uint8_t>(b); };
    const auto [p1, p2, p3] = divider;
    return {
        byte(bits(p3, 8, 0xFF)),           byte(bits(p3, 0, 0xFF)),
        byte(r_bits | bits(p1, 16, 0x03)), byte(bits(p1, 8, 0xFF)),
        byte(bits(p1, 0, 0xFF)),           byte(bits(p3, 16, 0x0F) << 4 | bits(p2, 16, 0x0F)),
        byte(bits(p2, 8, 0xFF)),           byte(bits(p2, 0, 0xFF)),
    };
}

void write_block(uint8_t reg, const DIVIDER_BLOCK_T &bytes, unsigned pause_us)
{
    for (const uint8_t byte : bytes) {
        i2cSendRegister(reg, byte);
        reg++;
        if (pause_us > 0) usleep(pause_us);
    }
}

static DIVIDER_T divide_by(uint8_t mult, uint32_t num, uint32_t denom)
{
    /* Single precision on purpose: 1023999/1048575 gives f = 125 here, but 124 in double. The
     * detour over 64 bits keeps a quotient beyond 32 bits defined. */
    const float fraction = static_cast<float>(num) / static_cast<float>(denom);
    const auto f = static_cast<uint32_t>(static_cast<uint64_t>(fraction * 128.0F));
    return {128U * mult - 512U + f, 128U * num - denom * f, denom};
}

static void write_divider(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom, uint8_t r_bits)
{
    if (denom == 0) {
        LOG_ERROR("invalid denom:0 for registers from %u", reg);
        return;
    }
    write_block(reg, pack_divider(divide_by(mult, num, denom), r_bits));
}

void setupPLL(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom)
{
    write_divider(reg, mult, num, denom, 0);
}

void Multisynth(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom, uint8_t div)
{
    write_divider(reg, mult, num, denom, static_cast<uint8_t>(div << 4));
}
