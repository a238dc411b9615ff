/* Once a second: to the screen, to standard output or to a file. */
#include "ctl/watch.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "ctl/live.h"
#include "ctl/screen.h"
#include "ctl/sockets.h"

static int64_t now_ms()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

static void watch_screen(LIVE_T *live, int seconds)
{
    bool goes_on = true;
    for (int second = 0; goes_on && (seconds == 0 || second < seconds); second++) {
        const int64_t due_ms = now_ms() + 1000;
        sample(live);
        draw_screen(*live);
        for (int64_t left_ms; goes_on && (left_ms = due_ms - now_ms()) > 0;)
            goes_on = wait_for_key(*live, static_cast<int>(left_ms));
    }
}

/* Calls print once a second after a sample; ends early when that says so. */
static void sample_each_second(LIVE_T *live, int seconds, bool (*print)(const LIVE_T &, FILE *),
                               FILE *file)
{
    for (int second = 0; seconds == 0 || second < seconds; second++) {
        const int64_t due_ms = now_ms() + 1000;
        sample(live);
        if (!print(*live, file)) return;
        const int64_t left_ms = due_ms - now_ms();
        const bool is_last = second + 1 == seconds;
        if (left_ms > 0 && !is_last) (void)usleep(static_cast<useconds_t>(left_ms) * 1000);
    }
}

static bool print_line(const LIVE_T &live, FILE *file)
{
    if (live.has_news) (void)fprintf(file, "%s\n", live.news.c_str());
    (void)fprintf(file, "%s", live.time.c_str());
    if (!live.now.answers) (void)fprintf(file, "  no answer from the service");
    for (int i = 0; live.now.answers && i < CHANNEL_COUNT; i++) {
        const CLOCK_T &clock = live.now.clocks[i];
        const FIFO_T &fifo = live.now.fifos[i];
        (void)fprintf(file, "  %s %d Hz", path_names[i], live.now.listed[i].rate_hz);
        if (clock.known) (void)fprintf(file, " %+.2f ppm %+.4g steps", clock.ppm, clock.position);
        if (clock.rate == nullptr) (void)fprintf(file, " REFUSED");
        if (fifo.size > 0) (void)fprintf(file, " %d/%d", fifo.fill, fifo.size);
    }
    (void)fprintf(file, "\n");
    return fflush(file) == 0;
}

RESULT_E watch(int seconds)
{
    LIVE_T live;
    if (open_screen()) {
        watch_screen(&live, seconds);
        close_screen();
    } else {
        sample_each_second(&live, seconds, print_line, stdout);
    }
    return live.now.answers ? DONE : fail_no_service();
}

/* Empty fields for what is not known. */
static bool write_rows(const LIVE_T &live, FILE *file)
{
    const auto now = static_cast<long long>(time(nullptr));
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        const CLOCK_T &clock = live.now.clocks[i];
        (void)fprintf(file, "%lld,%d,%s,", now, i + 1, path_names[i]);
        if (live.now.answers) (void)fprintf(file, "%d", live.now.listed[i].rate_hz);
        if (clock.known) {
            (void)fprintf(file, ",%.2f,%.3f,%.4g,", clock.hz, clock.ppm, clock.position);
        } else {
            (void)fprintf(file, ",,,,");
        }
        if (live.now.has_reports && live.now.fifos[i].size > 0) {
            (void)fprintf(file, "%d,%d,%.1f", live.now.fifos[i].size, live.now.fifos[i].fill,
                          live.now.report_age_s);
        } else {
            (void)fprintf(file, ",,");
        }
        (void)fprintf(file, "\n");
    }
    return fflush(file) == 0;
}

RESULT_E record(const std::string &path, int seconds)
{
    FILE *file = fopen(path.c_str(), "ae");
    if (file == nullptr)
        return fail(NOT_SO, "%s: %s; name a file that this user may write", path.c_str(),
                    strerror(errno));
    LIVE_T live;
    if (ftell(file) == 0) {
        (void)fprintf(file, "time,channel,path,rate_hz,clock_hz,ppm,position,fifo_size,fifo_fill,"
                            "newest_report_age_s\n");
    }
    sample_each_second(&live, seconds, write_rows, file);
    const bool written = ferror(file) == 0;
    const bool closed = fclose(file) == 0;
    if (!written || !closed)
        return fail(NOT_SO, "%s could not be written whole: is the disk full?", path.c_str());
    return live.now.answers ? DONE : fail_no_service();
}
