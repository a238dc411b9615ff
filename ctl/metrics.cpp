/* Metrics for a fleet: one table of what there is to tell of a channel. */
#include "ctl/metrics.h"

#include <cmath>
#include <cstdio>

#include "ctl/chip.h"

/* NAN: not known, left out. */
struct METRIC_ROW_T {
    const char *name;
    const char *help;
    double (*value)(const SNAPSHOT_T &snapshot, int i);
};
static double known(bool is_known, double value)
{
    return is_known ? value : NAN;
}
static constexpr METRIC_ROW_T channel_metrics[] = {
    {"rate_hertz", "Sample rate as the service lists it, a refused one too.",
     [](const SNAPSHOT_T &s, int i) { return known(s.answers, s.listed[i].rate_hz); }},
    {"rate_refused", "1: the rate is not supported, and the clock is what it was before.",
     [](const SNAPSHOT_T &s, int i) {
         return known(s.answers, s.clocks[i].rate == nullptr ? 1 : 0);
     }},
    {"clock_hertz", "Master clock by the numerator that the service lists.",
     [](const SNAPSHOT_T &s, int i) { return known(s.clocks[i].known, s.clocks[i].hz); }},
    {"offset_ppm", "Master clock off 128 times the sample rate, positive is faster.",
     [](const SNAPSHOT_T &s, int i) { return known(s.clocks[i].known, s.clocks[i].ppm); }},
    {"trim_position_steps",
     "Place in the trim range in steps of the start size, positive is faster.",
     [](const SNAPSHOT_T &s, int i) { return known(s.clocks[i].known, s.clocks[i].position); }},
    {"fifo_size", "FIFO size as last reported.",
     [](const SNAPSHOT_T &s, int i) { return known(s.fifos[i].size > 0, s.fifos[i].size); }},
    {"fifo_fill", "FIFO fill as last reported.",
     [](const SNAPSHOT_T &s, int i) { return known(s.fifos[i].size > 0, s.fifos[i].fill); }},
};

static void print_heading(const char *name, const char *help)
{
    (void)printf("# HELP si5351_%s %s\n# TYPE si5351_%s gauge\n", name, help, name);
}

static void print_single(const char *name, const char *help, double value)
{
    print_heading(name, help);
    (void)printf("si5351_%s %.10g\n", name, value);
}

static void print_channels(const METRIC_ROW_T &row, const SNAPSHOT_T &snapshot)
{
    bool has_heading = false;
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        const double value = row.value(snapshot, i);
        if (std::isnan(value)) continue;
        if (!has_heading) print_heading(row.name, row.help);
        has_heading = true;
        (void)printf("si5351_%s{channel=\"%d\",path=\"%s\"} %.10g\n", row.name, i + 1,
                     path_names[i], value);
    }
}

RESULT_E print_metrics(const std::string &image)
{
    SNAPSHOT_T snapshot;
    const CHIP_T chip = read_chip_and_service(image, &snapshot);

    print_single("service_up", "Whether the clock service answers.", snapshot.answers ? 1 : 0);
    const RESULT_E result = judge_chip(chip, snapshot);
    if (chip.fault.empty() && result != NO_SERVICE)
        print_single("chip_as_it_should_be", "Whether the chip is set as the service lists it.",
                     result == DONE ? 1 : 0);
    if (snapshot.has_reports)
        print_single("newest_fifo_report_age_seconds", "Age of the newest report of any channel.",
                     snapshot.report_age_s);
    for (const METRIC_ROW_T &row : channel_metrics)
        print_channels(row, snapshot);
    (void)printf("# EOF\n"); // tells a whole file from one that a full disk has cut off
    return snapshot.answers ? result : NO_SERVICE;
}
