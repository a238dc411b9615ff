/* What the service's listing says of a channel: its clock, and its place in the trim range. */
#pragma once

#include <cstdint>
#include <string>

#include "chip/outputs.h"
#include "chip/rates.h"
#include "service/si5351_client.h"

static_assert(SI5351_LISTED_COUNT == CHANNEL_COUNT, "a listed record for each channel");

/* The paths by channel, as the status file names them. */
inline constexpr const char *path_names[] = {"hdmi", "analog", "earc/spdif"};
static_assert(std::size(path_names) == CHANNEL_COUNT, "a name for each channel");

/** @return the supported sample rates in Hz: "44100, 48000" and so on */
std::string list_rates();

/* The position is worked out with the step sizes that the service starts with: the listing does not
 * tell others that the console may have set. Trims count from the nominal centre. A value that is
 * no whole number of steps away from it is the learned centre, from where the full range is left.
 */
struct CLOCK_T {
    const RATE_ROW_T *rate; // null: the rate was refused, and the clock is what it was before
    double position;        // trim steps from the centre; positive is faster
    bool at_learned_centre; // the position is then 0
    bool known;             // whether the rest is
    double hz;
    double ppm; // off 128 times the rate; positive is faster
};

/** @return what a channel's listed rate and value mean; out of the divider's range no clock is
 * known
 */
CLOCK_T work_out_clock(const SI5351_LISTED_T &listed);

/**
 * @param position   in trim steps
 * @param direction  1 faster, -1 slower
 * @return whole steps that are left in this direction, 0 to 48
 */
int steps_left(double position, int direction);

/** @return the place in the trim range: "+3 of 24 steps; left: 21 faster, 27 slower", or "learned
 *          centre; left: 24 faster, 24 slower" */
std::string describe_trim(const CLOCK_T &clock);
