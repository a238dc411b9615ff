/* The whole-frequency interface: an even output divider, PLL A at that many times the output. */
#include "chip/whole_frequency.h"

#include "chip/multisynth.h"
#include "chip/outputs.h"
#include "log/log.h"

void setupMultisynth(uint8_t reg, uint32_t divider, uint8_t rDiv)
{
    write_block(reg, pack_divider({128U * divider - 512U, 0, 1}, rDiv));
}

void si5351aSetFrequency(int ch, uint32_t frequency)
{
    LOG_INFO("set param ch:%d freq:%u", ch, frequency);
    if (frequency == 0) {
        LOG_ERROR("invalid freq:0 for ch:%d", ch);
        return;
    }
    const uint32_t divider = PLL_A_HZ / frequency & ~1U;
    const uint32_t pll_hz = divider * frequency;
    const uint32_t mult = pll_hz / CRYSTAL_HZ;
    const uint32_t rest_hz = pll_hz - mult * CRYSTAL_HZ;
    const auto num = static_cast<uint32_t>(static_cast<float>(rest_hz) * 1048575.0F /
                                           static_cast<float>(CRYSTAL_HZ));
    setupPLL(PLL_A_BLOCK, static_cast<uint8_t>(mult), num, RATIO_DENOM);
    if (is_channel(ch)) setupMultisynth(output_block(ch), divider, 0);
}

void setupReg(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom)
{
    setupPLL(reg, mult, num, denom);
}
