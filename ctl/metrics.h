/* The subcommand metrics: the state in the text format of Prometheus. */
#pragma once

#include <string>

#include "ctl/result.h"

/**
 * Prints all that is known as metrics; what is not known is left out.
 * @param image  the chip's registers, as for check_chip
 * @return DONE; NOT_SO when the chip is not as it should be or cannot be read; NO_SERVICE
 */
RESULT_E print_metrics(const std::string &image);
