/* What can be learned of the service from outside, at one moment: its listing, the status file, the
 * word of systemd. */
#pragma once

#include <string>

#include "ctl/clock.h"

/* What a consumer last reported of its FIFO, in its own unit; both 0 before. */
struct FIFO_T {
    int32_t size;
    int32_t fill;
};

struct SNAPSHOT_T {
    bool answers = false;                       // whether the service does
    SI5351_LISTED_T listed[CHANNEL_COUNT] = {}; // only when it answers
    CLOCK_T clocks[CHANNEL_COUNT] = {};

    bool has_reports = false; // whether the rest is known
    FIFO_T fifos[CHANNEL_COUNT] = {};
    double report_age_s = 0;   // of the newest report; those of the other channels may be older
    std::string reports_fault; // why the status file says nothing; empty before the first report
};

/**
 * Asks the service and reads the status file.
 * @param limit_ms  wait at most so long for the service
 */
SNAPSHOT_T take_snapshot(int limit_ms);

/** @return what systemd says of the service, within a second; empty when it does not run there */
std::string read_systemd_status();
