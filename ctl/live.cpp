/* Sampling once a second. */
#include "ctl/live.h"

#include <cmath>
#include <ctime>

#include "ctl/sockets.h"

static std::string time_of_day()
{
    const time_t now = time(nullptr);
    tm local = {};
    char text[16] = "";
    (void)localtime_r(&now, &local);
    (void)strftime(text, sizeof(text), "%H:%M:%S", &local);
    return text;
}

static void tell(LIVE_T *live, const char *news)
{
    live->news = live->time + " " + news;
    live->has_news = true;
}

/* A service that is back within a second has been seen all the time: only its socket is another. */
static void note_service(LIVE_T *live, bool answered)
{
    live->has_news = false;
    if (!live->now.answers) {
        if (answered) tell(live, "the service does not answer");
        return;
    }
    const unsigned long service = find_service_socket();
    if (live->service != 0 && service != live->service) {
        tell(live, "the service was started anew: all channels at 48000 Hz");
    } else if (!answered && live->service != 0) {
        tell(live, "the service answers again");
    }
    live->service = service;
}

static POINT_T make_point(const SNAPSHOT_T &now, int i)
{
    const FIFO_T &fifo = now.fifos[i];
    const bool has_fifo = now.has_reports && fifo.size > 0;
    return {has_fifo ? static_cast<double>(fifo.fill) / fifo.size : NAN,
            now.clocks[i].known ? now.clocks[i].ppm : NAN};
}

void sample(LIVE_T *live)
{
    const bool answered = live->now.answers;
    live->now = take_snapshot(LIVE_WAIT_MS);
    live->time = time_of_day();
    note_service(live, answered);
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        live->points[i].push_back(make_point(live->now, i));
        if (live->points[i].size() > HISTORY_S) live->points[i].pop_front();
    }
}
