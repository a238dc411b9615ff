/* The log: formats a line once and hands it to log4cpp. */
#include "log/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/PropertyConfigurator.hh>
#include <string>
#include <unistd.h>

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

/* A file that failed half-way may have set up some appenders: they are removed, for the root and
 * for our category. log4cpp owns appender and layout. */
static void log_to_standard_error()
{
    auto *layout = new log4cpp::PatternLayout();
    layout->setConversionPattern("%d [%p] %m%n");
    // A descriptor, because a stream that has failed once, as on a full disk, never writes again.
    const int fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0); // the appender closes it
    auto *appender = new log4cpp::FileAppender("standard error", fd);
    appender->setLayout(layout);

    log4cpp::Category &category = log4cpp::Category::getInstance(LOG_CATEGORY);
    category.removeAllAppenders();
    category.setAdditivity(true);
    category.setPriority(log4cpp::Priority::NOTSET); // as the root's
    log4cpp::Category &root = log4cpp::Category::getRoot();
    root.removeAllAppenders();
    root.setAppender(appender);
    root.setPriority(log4cpp::Priority::INFO);
}

/* log4cpp is silent about a log file that it cannot open. Opening all of them again tells. */
static bool open_log_files()
{
    return log4cpp::Appender::reopenAll();
}

int configure_logging(const char *path)
{
    std::string reason;
    try {
        log4cpp::PropertyConfigurator::configure(path);
        if (open_log_files()) return 0;
        reason = std::string("its log file cannot be opened: ") + strerror(errno);
    } catch (const std::exception &failure) {
        reason = failure.what();
    }
    (void)fprintf(stderr, "logging file %s: %s; logging to standard error\n", path, reason.c_str());
    log_to_standard_error();
    return -1;
}
