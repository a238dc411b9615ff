/* The chip's dividers: the writing of their blocks. */
#include "chip/multisynth.h"

#include <unistd.h>

#include "chip/i2c_access.h"
#include "log/log.h"

void write_block(uint8_t reg, const DIVIDER_BLOCK_T &bytes, unsigned pause_us)
{
    for (const uint8_t byte : bytes) {
        i2cSendRegister(reg, byte);
        reg++;
        if (pause_us > 0) usleep(pause_us);
    }
}

void setupPLL(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom)
{
    Multisynth(reg, mult, num, denom, 0); // a PLL's block has no R divider
}

void Multisynth(uint8_t reg, uint8_t mult, uint32_t num, uint32_t denom, uint8_t div)
{
    if (denom == 0) {
        LOG_ERROR("invalid denom:0 for registers from %u", reg);
        return;
    }
    const auto r_bits = static_cast<uint8_t>(div << 4);
    write_block(reg, pack_divider(divide_by(mult, num, denom), r_bits));
}
