/* The sample rates: everything known of each, in one table. */
#pragma once

#include <cstdint>
#include <iterator>

#include "chip/outputs.h"

/* A row number is the index into stStep. The output is PLL A (900 MHz) / (mult + num / 1048575) /
 * 2^div, which comes to 6.4, 4.6, 7.6, 8.5, 9.4 and 10.0 ppm above 128 times the rate. */
struct RATE_ROW_T {
    int32_t rate_hz;
    uint8_t mult;       // integer part of the multisynth ratio
    uint32_t num;       // its fraction numerator at the centre of the trim range
    uint8_t div;        // R divider code: output divided by 2^div
    int32_t start_step; // trim step at start, in units of num
};
// clang-format off
inline constexpr RATE_ROW_T rate_rows[] = {
    //  rate  mult     num  div  start_step
    {  44100,   79, 753800,   1,       1400},
    {  48000,   73, 253600,   1,       1200},
    {  88200,   79, 753700,   0,        700},
    {  96000,   73, 253300,   0,        600},
    { 176400,   39, 901060,   0,        200},
    { 192000,   36, 650880,   0,        160},
};
// clang-format on
inline constexpr int RATE_COUNT = std::size(rate_rows);

/* The range of the trims, at every rate, and how the centre is learned. */
inline constexpr int32_t TRIM_LIMIT = 24;        // steps either way of the centre
inline constexpr int32_t CENTRE_BAND_STEPS = 20; // how far a learned centre may wander
inline constexpr int32_t CENTRE_CREEP = 100;     // a return to 0 moves it by step / 100

/* Clock of a numerator, in ppm above 128 times the rate. */
constexpr double offset_ppm(const RATE_ROW_T &row, double num)
{
    const double ratio = row.mult + num / RATIO_DENOM;
    return (PLL_A_HZ / ratio / (1 << row.div) / (128.0 * row.rate_hz) - 1) * 1e6;
}
/* At the centre of the trims, 0 to 10 for every row. */
constexpr bool are_rates_true()
{
    bool all = true;
    for (const RATE_ROW_T &row : rate_rows) {
        const double ppm = offset_ppm(row, row.num);
        all = all && ppm >= 0 && ppm <= 10;
    }
    return all;
}
static_assert(are_rates_true(), "each row gives 128 times its rate from this PLL A");

/**
 * @return the row of a sample rate in Hz, or null when the rate is none of the six
 */
constexpr const RATE_ROW_T *find_rate(int32_t rate_hz)
{
    for (const RATE_ROW_T &row : rate_rows) {
        if (row.rate_hz == rate_hz) return &row;
    }
    return nullptr;
}
