/* From rate and numerator to hertz, ppm and trim steps. */
#include "ctl/clock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

std::string list_rates()
{
    std::string text;
    for (const RATE_ROW_T &row : rate_rows)
        text += (text.empty() ? "" : ", ") + std::to_string(row.rate_hz);
    return text;
}

/* A larger numerator is a slower clock. */
static void find_position(CLOCK_T *clock, int32_t value)
{
    const double steps = (static_cast<double>(clock->rate->num) - value) / clock->rate->start_step;
    clock->at_learned_centre =
        steps != std::round(steps) && std::fabs(steps) < CENTRE_BAND_STEPS + 1;
    clock->position = clock->at_learned_centre ? 0 : steps;
}

CLOCK_T work_out_clock(const SI5351_LISTED_T &listed)
{
    CLOCK_T clock = {};
    clock.rate = find_rate(listed.rate_hz);
    if (clock.rate == nullptr) return clock;
    find_position(&clock, listed.value);
    clock.known = listed.value > 0 && listed.value < static_cast<int32_t>(RATIO_DENOM);
    if (!clock.known) return clock;

    const RATE_ROW_T &rate = *clock.rate;
    const double ratio = rate.mult + static_cast<double>(listed.value) / RATIO_DENOM;
    clock.hz = PLL_A_HZ / ratio / (1 << rate.div);
    clock.ppm = (clock.hz / (128.0 * rate.rate_hz) - 1) * 1e6;
    return clock;
}

int steps_left(double position, int direction)
{
    const long left = std::lround(TRIM_LIMIT - position * direction);
    return static_cast<int>(std::clamp(left, 0L, 2L * TRIM_LIMIT));
}

std::string describe_trim(const CLOCK_T &clock)
{
    char text[128];
    char place[48] = "learned centre";
    if (!clock.at_learned_centre)
        (void)snprintf(place, sizeof(place), "%+.4g of %d steps", clock.position, TRIM_LIMIT);
    (void)snprintf(text, sizeof(text), "%s; left: %d faster, %d slower", place,
                   steps_left(clock.position, 1), steps_left(clock.position, -1));
    return text;
}
