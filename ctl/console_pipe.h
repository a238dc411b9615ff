/* The subcommands that go through the service's pipe. They never wait longer than two seconds. */
#pragma once

#include "ctl/result.h"

/**
 * Lets the datagrams of programs reach the chip, or keeps them from it.
 * @param on  true: they reach it, as at the start of the service
 * @return DONE, the service has read it; NOT_SO when the pipe may not be written; NO_SERVICE
 */
RESULT_E switch_chip_writes(bool on);

/**
 * Sets the trim step of a sample rate, for the channels that take this rate from now on.
 * @param rate_hz  one of the six sample rates
 * @param size     in units of the numerator
 * @param force    also a size that turns faster and slower round or leaves the numerator's range
 * @return DONE, the service has read it; NOT_SO refused, or the pipe may not be written; NO_SERVICE
 */
RESULT_E set_step_size(int rate_hz, int size, bool force);
