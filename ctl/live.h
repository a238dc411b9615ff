/* The state over the last minutes, sampled once a second, and what has happened to the service. */
#pragma once

#include <deque>
#include <string>

#include "ctl/snapshot.h"

inline constexpr int HISTORY_S = 300;

/* One second of a channel; NAN where nothing is known. */
struct POINT_T {
    double fill; // share of the FIFO, 0 to 1
    double ppm;
};

struct LIVE_T {
    SNAPSHOT_T now;
    std::string time;                          // of now, as 12:34:56
    std::string news;                          // what last happened to the service, with its time
    bool has_news = false;                     // whether it came with now
    unsigned long service = 0;                 // its socket, as last seen; 0: never
    std::deque<POINT_T> points[CHANNEL_COUNT]; // newest last, at most HISTORY_S
};

/** Asks the service anew, notes points and news. Takes LIVE_WAIT_MS at most. */
void sample(LIVE_T *live);
