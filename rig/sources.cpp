/* Sources that do not stay where they are. */
#include "rig/sources.h"

#include <algorithm>
#include <cmath>

double drift(const RUN_T &run, double now)
{
    const double minutes = std::fmod(now / 60 + 200, 800); // a period: four ways of 20 ppm
    return run.ppm + 0.1 * (minutes < 400 ? minutes - 200 : 600 - minutes);
}

static bool is_between(const RUN_T &run, double now)
{
    return now >= run.event_s && now < run.end_s;
}

double pause(const RUN_T &run, double now)
{
    return is_between(run, now) ? NAN : run.ppm;
}

double change_over(const RUN_T &run, double now)
{
    return now < run.event_s ? run.ppm : -run.ppm;
}

double ramp(const RUN_T &run, double now)
{
    return run.ppm + std::clamp(now - run.event_s, 0.0, run.end_s - run.event_s);
}

double leave_range(const RUN_T &run, double now)
{
    return is_between(run, now) ? -115 : run.ppm;
}
