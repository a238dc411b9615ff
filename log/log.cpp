/* The log: formats a line once and hands it to log4cpp. */
#include "log/log.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <iostream>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/PropertyConfigurator.hh>

static constexpr const char *LOG_CATEGORY = "CATEGORY";
static constexpr int LINE_SIZE = 1024;

void log_line(int priority, const char *source, unsigned line, const char *format, ...)
{
    log4cpp::Category &category = log4cpp::Category::getInstance(LOG_CATEGORY);
    if (!category.isPriorityEnabled(priority)) return;

    char message[LINE_SIZE];
    va_list args;
    va_start(args, format);
    (void)vsnprintf(message, sizeof(message), format, args); // a longer text is cut
    va_end(args);
    category.log(priority, "%s --[%s:%u]", message, source, line);
}

/* What a file that failed half-way may have set up goes too; log4cpp owns appender and layout. */
static void log_to_standard_error()
{
    auto *layout = new log4cpp::PatternLayout();
    layout->setConversionPattern("%d [%p] %m%n");
    auto *appender = new log4cpp::OstreamAppender("standard error", &std::cerr);
    appender->setLayout(layout);

    log4cpp::Category &root = log4cpp::Category::getRoot();
    root.removeAllAppenders();
    root.setAppender(appender);
    root.setPriority(log4cpp::Priority::INFO);
}

int configure_logging(const char *path)
{
    try {
        log4cpp::PropertyConfigurator::configure(path);
        return 0;
    } catch (const std::exception &failure) {
        (void)fprintf(stderr, "logging file %s: %s; logging to standard error\n", path,
                      failure.what());
    }
    log_to_standard_error();
    return -1;
}
