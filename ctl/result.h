/* How a subcommand ends: its exit status, and the line that says why. */
#pragma once

/* Exit status. */
enum RESULT_E {
    DONE = 0,
    NOT_SO = 1, // refused, or not as it should be
    BAD_USAGE = 2,
    NO_SERVICE = 3,
};

/**
 * Prints "si5351ctl: " and a message as one line to standard error.
 * @param result  how the subcommand ends
 * @param format  as printf: what is wrong, and what to do
 * @return result
 */
RESULT_E fail(RESULT_E result, const char *format, ...) __attribute__((format(printf, 2, 3)));
