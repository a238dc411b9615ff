/* The subcommands that go on: watch on the screen, record into a file; and the plot of a record. */
#pragma once

#include <string>

#include "ctl/result.h"

/**
 * Shows the state live, on a terminal until q is pressed; elsewhere as one line a second.
 * @param seconds  end after this many seconds; 0: never
 * @return DONE; NO_SERVICE when it did not answer in the end
 */
RESULT_E watch(int seconds);

/**
 * Appends one CSV line per channel each second to a file.
 * @param path     the file; a new one gets a heading
 * @param seconds  end after this many seconds; 0: never
 * @return DONE, NOT_SO when it cannot be written, NO_SERVICE when it did not answer in the end
 */
RESULT_E record(const std::string &path, int seconds);

/**
 * Draws fill and ppm of a record with gnuplot, into a PNG file beside it.
 * @param path  the record
 * @return DONE; NOT_SO without gnuplot or a record that it can draw
 */
RESULT_E plot(const std::string &path);
