/* The line of a failure. */
#include "ctl/result.h"

#include <cstdarg>
#include <cstdio>

RESULT_E fail(RESULT_E result, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    (void)fflush(stdout); // what was found comes before what is wrong with it
    (void)fputs("si5351ctl: ", stderr);
    (void)vfprintf(stderr, format, arguments);
    (void)fputc('\n', stderr);
    va_end(arguments);
    return result;
}
