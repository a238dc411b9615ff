/* Si5351A registers to frequencies:
 *
 *   27 MHz crystal --> x feedback ratio --> PLL A or B --> / output ratio --> / 2^R --> CLKn
 *
 * Not modelled: lock times and ranges, spread spectrum, phase, drive strength, inversion. */
#include "decode/output_clock.h"

#include <cmath>

static constexpr uint32_t CRYSTAL_HZ = 27000000;
static constexpr int rates_hz[] = {44100, 48000, 88200, 96000, 176400, 192000};

static constexpr int OUTPUT_DISABLE = 3; // bit n set: CLKn off
static constexpr int PLL_SOURCE = 15;    // bit 2 PLL A, bit 3 PLL B; set: CLKIN, not the crystal
static constexpr int CLK0_CONTROL = 16;
static constexpr int PLL_A_BLOCK = SI5351_FIRST_BLOCK;
static constexpr int MS0_BLOCK = 42;
static constexpr int FANOUT = 187; // bit 6: crystal to the outputs, bit 4: MS0 to the outputs

static constexpr SI5351_CLOCK_T NO_CLOCK = {0, 1};

static bool is_set(uint8_t value, int bit)
{
    return (value >> bit & 1) != 0;
}

static SI5351_CLOCK_T reduce(const SI5351_CLOCK_T &clock)
{
    if (clock.num == 0) return NO_CLOCK;
    uint128_t divisor = clock.num;
    for (uint128_t rest = clock.den; rest != 0;) {
        const uint128_t next = divisor % rest;
        divisor = rest;
        rest = next;
    }
    return {clock.num / divisor, clock.den / divisor};
}

/* The ratio a + b/c of a block, from P1 = 128a + floor(128b/c) - 512 and P2 = 128b mod c:
 *
 *   R+0 P3 15-8   R+1 P3 7-0   R+2 0 | R divider 6-4 | divide by four 3-2 | P1 17-16
 *   R+3 P1 15-8   R+4 P1 7-0   R+5 P3 19-16 | P2 19-16   R+6 P2 15-8   R+7 P2 7-0
 *
 * P3 = 0, a block never written, gives no ratio. The integer mode bits (CLKn control bit 6,
 * registers 22 and 23 for the PLLs) only quieten the fractional stage; the ratio stays P1 to P3. */
static SI5351_CLOCK_T decode_ratio(const uint8_t *block)
{
    const auto high = [block](int index, int shift, uint32_t mask) {
        return (static_cast<uint32_t>(block[index]) >> shift & mask) << 16;
    };
    const auto low = [block](int index) {
        return static_cast<uint32_t>(block[index]) << 8 | block[index + 1];
    };
    const uint32_t p1 = high(2, 0, 0x3) | low(3);
    const uint32_t p2 = high(5, 0, 0xF) | low(6);
    const uint32_t p3 = high(5, 4, 0xF) | low(0);
    if (p3 == 0) return NO_CLOCK;
    return {(uint128_t{p1} + 512) * p3 + p2, uint128_t{128} * p3};
}

SI5351_CLOCK_T decode_pll_clock(const uint8_t *registers, int pll)
{
    if (is_set(registers[PLL_SOURCE], 2 + pll)) return NO_CLOCK; // this package has no CLKIN pin
    const auto ratio = decode_ratio(&registers[PLL_A_BLOCK + pll * SI5351_BLOCK_SIZE]);
    return {CRYSTAL_HZ * ratio.num, ratio.den};
}

static SI5351_CLOCK_T decode_multisynth(const uint8_t *registers, int index)
{
    const uint8_t *block = &registers[MS0_BLOCK + index * SI5351_BLOCK_SIZE];
    const auto pll =
        decode_pll_clock(registers, is_set(registers[CLK0_CONTROL + index], 5) ? 1 : 0);
    const auto ratio = decode_ratio(block);
    if (ratio.num == 0) return NO_CLOCK;

    const bool divides_by_four = (block[2] >> 2 & 0x3) == 0x3; // P1 and P2 then have no say
    if (divides_by_four) return {pll.num, pll.den * 4};
    return {pll.num * ratio.den, pll.den * ratio.num};
}

/* What the CLKn control register connects to the output's R divider. */
static SI5351_CLOCK_T decode_source(const uint8_t *registers, int output)
{
    switch (registers[CLK0_CONTROL + output] >> 2 & 0x3) {
    case 0:
        return is_set(registers[FANOUT], 6) ? SI5351_CLOCK_T{CRYSTAL_HZ, 1} : NO_CLOCK;
    case 2: // reserved on CLK0, MS0 on the others
        if (output == 0 || !is_set(registers[FANOUT], 4)) return NO_CLOCK;
        return decode_multisynth(registers, 0);
    case 3:
        return decode_multisynth(registers, output);
    default:
        return NO_CLOCK; // CLKIN
    }
}

SI5351_CLOCK_T decode_output_clock(const uint8_t *registers, int output)
{
    if (output < 0 || output >= SI5351_OUTPUT_COUNT) return NO_CLOCK;
    if (is_set(registers[OUTPUT_DISABLE], output)) return NO_CLOCK;
    if (is_set(registers[CLK0_CONTROL + output], 7)) return NO_CLOCK; // powered down

    // at most 27e6 x 2^39 x 2^27 over 2^27 x 2^39 x 2^7: all products stay below 2^92
    const auto source = decode_source(registers, output);
    const int r_divider = registers[MS0_BLOCK + output * SI5351_BLOCK_SIZE + 2] >> 4 & 0x7;
    return reduce({source.num, source.den << r_divider});
}

bool is_same_clock(const SI5351_CLOCK_T &left, const SI5351_CLOCK_T &right)
{
    return left.num == right.num && left.den == right.den;
}

double get_clock_hz(const SI5351_CLOCK_T &clock)
{
    return static_cast<double>(clock.num) / static_cast<double>(clock.den);
}

double get_offset_ppm(double hz, int *rate_hz)
{
    int nearest = rates_hz[0];
    for (const int rate : rates_hz) {
        if (std::fabs(hz - 128.0 * rate) < std::fabs(hz - 128.0 * nearest)) nearest = rate;
    }
    *rate_hz = nearest;
    return (hz / (128.0 * nearest) - 1) * 1e6;
}
