/* Register images to the decoder of the simulated chip. The calculation here is the same formula in
 * floating point: it knows no overflow, which is what the exact one could get wrong. */
#include "decode/output_clock.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using IMAGE_T = uint8_t[SI5351_REGISTER_COUNT];

static double divide(const uint8_t *block)
{
    const double p1 = (block[2] & 3) * 65536 + block[3] * 256 + block[4];
    const double p2 = (block[5] & 15) * 65536 + block[6] * 256 + block[7];
    const double p3 = (block[5] >> 4) * 65536 + block[0] * 256 + block[1];
    return p3 > 0 ? (p1 + 512 + p2 / p3) / 128 : 0;
}

static double multisynth_hz(const IMAGE_T &image, int index)
{
    const int pll = image[16 + index] >> 5 & 1;
    if ((image[15] >> (2 + pll) & 1) != 0) return 0;
    const uint8_t *block = &image[42 + 8 * index];
    const double ratio = divide(block);
    const double pll_hz = 27e6 * divide(&image[26 + 8 * pll]);
    if (ratio <= 0) return 0;
    return (block[2] >> 2 & 3) == 3 ? pll_hz / 4 : pll_hz / ratio;
}

static double output_hz(const IMAGE_T &image, int output)
{
    const int control = image[16 + output];
    const bool off = (image[3] >> output & 1) != 0 || control >= 0x80;
    const int source = control >> 2 & 3;
    double hz = 0;
    if (source == 3) hz = multisynth_hz(image, output);
    if (source == 2 && output > 0 && (image[187] & 0x10) != 0) hz = multisynth_hz(image, 0);
    if (source == 0 && (image[187] & 0x40) != 0) hz = 27e6;
    return off ? 0 : std::ldexp(hz, -(image[44 + 8 * output] >> 4 & 7));
}

static void check_output(const IMAGE_T &image, int output)
{
    const double wanted = output_hz(image, output);
    const SI5351_CLOCK_T clock = decode_output_clock(image, output);
    const double hz = get_clock_hz(clock);
    int rate_hz = 0;
    const double ppm = get_offset_ppm(hz, &rate_hz);
    const bool nearest = std::fabs(hz - 128.0 * rate_hz * (1 + ppm / 1e6)) < 1e-3 + hz * 1e-9;
    if (clock.den != 0 && nearest && std::fabs(hz - wanted) <= wanted * 1e-12) return;
    (void)fprintf(stderr, "CLK%d: %.9g Hz, wanted %.9g Hz\n", output, hz, wanted);
    abort();
}

/* An input is a register image from register 0 on; what it leaves away is 0. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IMAGE_T image = {};
    if (size > 0) memcpy(image, data, size < sizeof(image) ? size : sizeof(image));
    for (int output = 0; output < SI5351_OUTPUT_COUNT; output++)
        check_output(image, output);
    return 0;
}
