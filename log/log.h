/* The log: two macros for its lines, and its set-up from a log4cpp property file. */
#pragma once

#include <log4cpp/Priority.hh>

/**
 * Logs one printf-style line to the log4cpp category "CATEGORY"; " --[source:line]" is appended.
 * Use it through LOG_ERROR and LOG_INFO; LOG_SOURCE is a compile definition of the target.
 * @param priority  log4cpp::Priority::ERROR (300) for failures or INFO (600) for events
 * @param source    name of the part of the program that logs
 * @param line      source line of the statement
 * @param format    printf format of the message, checked by the compiler; text beyond 1023
 *                  characters is cut
 */
void log_line(int priority, const char *source, unsigned line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#define LOG_ERROR(...) log_line(log4cpp::Priority::ERROR, LOG_SOURCE, __LINE__, __VA_ARGS__)
#define LOG_INFO(...)  log_line(log4cpp::Priority::INFO, LOG_SOURCE, __LINE__, __VA_ARGS__)

/**
 * Configures log4cpp from a property file. Call it once, before the first thread.
 * When the file cannot be used, or a log file that it names cannot be opened, one line on
 * standard error says so with the reason, and the log goes to standard error at INFO.
 * @param path  the property file
 * @return 0 configured as the file says, -1 logging to standard error instead
 */
int configure_logging(const char *path);
