/* The subcommands that drive a channel by datagrams, and look at the listing afterwards. Each
 * prints what became of it. */
#pragma once

#include "ctl/result.h"

/**
 * Sets a channel's sample rate. A rate that is not supported is not even sent: the service would
 * keep it, and take no trims until it gets a good one.
 * @param ch       channel, 1 to 3
 * @param rate_hz  sample rate in Hz
 * @return DONE, NOT_SO refused, NO_SERVICE
 */
RESULT_E set_rate(int ch, int rate_hz);

/**
 * Trims a channel's clock.
 * @param ch         channel, 1 to 3
 * @param direction  1 faster, -1 slower
 * @param steps      how many, 1 to 48
 * @return DONE; NOT_SO when it could not go so far; NO_SERVICE
 */
RESULT_E trim_clock(int ch, int direction, int steps);

/**
 * Trims a channel's clock back to its centre.
 * @param ch  channel, 1 to 3
 * @return as trim_clock
 */
RESULT_E centre_clock(int ch);
