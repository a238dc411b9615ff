/* From rate and numerator to hertz, ppm and trim steps. */
#include "ctl/clock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

CLOCK_T work_out_clock(const SI5351_LISTED_T &listed)
{
    CLOCK_T clock = {};
    clock.rate = find_rate(listed.rate_hz);
    clock.known = clock.rate != nullptr && listed.value > 0 &&
                  listed.value < static_cast<int32_t>(RATIO_DENOM);
    if (!clock.known) return clock;

    const RATE_ROW_T &rate = *clock.rate;
    const double ratio = rate.mult + static_cast<double>(listed.value) / RATIO_DENOM;
    clock.hz = PLL_A_HZ / ratio / (1 << rate.div);
    clock.ppm = (clock.hz / (128.0 * rate.rate_hz) - 1) * 1e6;
    // a larger numerator is a slower clock
    clock.position = (static_cast<double>(rate.num) - listed.value) / rate.start_step;
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
    (void)snprintf(text, sizeof(text), "%+.4g of %d steps; left: %d faster, %d slower",
                   clock.position, TRIM_LIMIT, steps_left(clock.position, 1),
                   steps_left(clock.position, -1));
    return text;
}
