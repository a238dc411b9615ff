/* Plays the follower's scenarios in virtual time and holds the figures against their limits, or
 * writes what the plots show.
 *
 *     genlock_rig [short]      the table; ends with 1 when a limit is missed
 *     genlock_rig plot FOLDER  traces, and the trade of band against commands, in columns
 */
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <log4cpp/Category.hh>
#include <string>

#include "chip/rates.h"
#include "rig/loop.h"
#include "rig/sources.h"

static constexpr double FREE = INFINITY; // not limited

/* What came of all runs of a row, or what it may be: the worst, but for mean_commands. */
struct FIGURES_T {
    double peak, settled; // frames off the target
    double lock_s;
    double commands_h;
    double worst_ppm = 3, rms_ppm = 0.7; // error of the estimate of the source
    double slips = 0;
    double idea_ppm = 0.01; // the clock is known, whatever was lost on the way
    double mean_commands = FREE;
};

/* A run, played at the sample rates first to last of the table with several sources and starts. */
struct ROW_T {
    const char *name;
    int first, last;
    bool all_sources; // 0, +50, +100 and -80 ppm; else what set_up says
    int starts;       // of each source; the n-th is 0.7 n ppm faster
    void (*set_up)(RUN_T *run);
    FIGURES_T limit;
};

static void small_transfers(RUN_T *run)
{
    run->burst = 256;
    run->jitter_s = 100e-6;
}

static void large_transfers(RUN_T *run)
{
    run->burst = 1024;
    run->jitter_s = 300e-6;
}

static void lose(RUN_T *run, double lost)
{
    small_transfers(run);
    run->band = 8;
    run->lost = lost;
}

static void disturb(RUN_T *run, double ppm, double event_s, double end_s)
{
    small_transfers(run);
    run->ppm = ppm;
    run->event_s = event_s;
    run->end_s = end_s;
    run->seconds = end_s + 1200;
}

// clang-format off
static const ROW_T rows[] = {
    {"44.1 to 96 kHz, single frames",  0, 3, true, 8, [](RUN_T *) {},  {32, 22, 20, 50}},
    {"44.1 to 96 kHz, 256 frames",     0, 3, true, 8, small_transfers, {32, 22, 20, 50}},
    {"44.1 to 96 kHz, 1024 frames",    0, 3, true, 8, large_transfers, {32, 22, 20, 50}},
    {"176.4 kHz, single frames",       4, 4, true, 8, [](RUN_T *) {},  {56, 22, 40, 50}},
    {"192 kHz, single frames",         5, 5, true, 8, [](RUN_T *) {},  {56, 28, 40, 50}},
    {"176.4 and 192 kHz, 256 frames",  4, 5, true, 8, small_transfers, {56, 22, 40, 50}},
    {"176.4 and 192 kHz, 1024 frames", 4, 5, true, 8, large_transfers, {56, 22, 40, 50}},
    {"24 h, drift of 0.1 ppm/min",     0, 5, false, 1,
     [](RUN_T *run) { small_transfers(run); run->seconds = 24 * 3600; run->source = drift; },
     {FREE, 24, 40, 50, 3, 0.7, 0, 0.01, 36}},
    {"1 % of the commands lost",       1, 1, true, 8, [](RUN_T *run) { lose(run, 0.01); },
     {FREE, 16, FREE, FREE, FREE, FREE, 0, FREE}},
    {"10 % of the commands lost",      1, 1, true, 8, [](RUN_T *run) { lose(run, 0.1); },
     {FREE, 20, FREE, FREE, FREE, FREE, 0, FREE}},
    {"30 % of the commands lost",      1, 1, true, 8, [](RUN_T *run) { lose(run, 0.3); },
     {FREE, 34, FREE, FREE, FREE, FREE, 0, FREE}},
    {"10 % lost, listed every 10 s",   1, 1, true, 8,
     [](RUN_T *run) { lose(run, 0.1); run->list_s = 10; }, {FREE, 20, FREE, FREE, 80, 4, 0, 16}},
    {"band of 1, single frames",       1, 1, true, 8, [](RUN_T *run) { run->band = 1; },
     {FREE, 2, 20, FREE, 3, 0.7, 0, 0.01, 500}},
    {"1024 frames, up to 1 ms late",   0, 3, true, 8,
     [](RUN_T *run) { large_transfers(run); run->jitter_s = 1e-3; }, {60, 24, 40, 50, 4, 1}},
    {"256 frames, stalls of 20 ms",    1, 1, true, 8,
     [](RUN_T *run) { small_transfers(run); run->stalls = 5e-4; }, {FREE, 22, 30, 50, 4}},
    {"1024 frames, told by a timer",   1, 1, true, 8,
     [](RUN_T *run) { large_transfers(run); run->report_s = 0.1; }, {FREE, 240, 400, 100, 40, 6}},
    {"source on a step, 98.3 ppm",     1, 1, false, 1,
     [](RUN_T *run) { small_transfers(run); run->ppm = 97.64; }, {FREE, 22, 20, 5}},
    {"176.4 kHz, -90 ppm, 10 % lost", 4, 4, false, 8,
     [](RUN_T *run) { lose(run, 0.1); run->ppm = -90; },
     {FREE, 34, FREE, FREE, FREE, FREE, 0, FREE}},
    {"source stops for 60 s",          0, 5, false, 8,
     [](RUN_T *run) { disturb(run, 40, 600, 660); run->source = pause; },
     {FREE, 36, 15, 50, 3, 0.7, 1}},
    {"another source, +40 to -40 ppm", 0, 5, false, 8,
     [](RUN_T *run) { disturb(run, 40, 600, 600); run->source = change_over; },
     {FREE, 22, 30, 50}},
    {"restart of the service",         0, 5, false, 8,
     [](RUN_T *run) { disturb(run, 40, 600, 602); run->event = RESTART; run->list_s = 1; },
     {FREE, 36, 30, 50, 3, 0.7, FREE}},
    {"chip writes off for 5 min",      0, 5, false, 8,
     [](RUN_T *run) { disturb(run, 40, 600, 900); run->event = WRITES_OFF; run->list_s = 1; },
     {FREE, 22, 60, 50}},
    {"ramp of 1 ppm/s, -60 to +60 ppm", 0, 5, false, 8,
     [](RUN_T *run) { disturb(run, -60, 600, 720); run->source = ramp; }, {FREE, 22, 20, 50}},
    {"176.4 kHz, 20 min at -115 ppm",  4, 4, false, 8,
     [](RUN_T *run) { disturb(run, -60, 600, 1800); run->source = leave_range; },
     {FREE, 36, 60, 50, 3, 0.7, 1}},
};
// clang-format on

static void add_result(FIGURES_T *all, const RESULT_T &one)
{
    all->peak = std::max(all->peak, one.peak);
    all->settled = std::max(all->settled, one.settled);
    all->lock_s = std::max(all->lock_s, one.lock_s);
    all->commands_h = std::max(all->commands_h, one.commands_h);
    all->worst_ppm = std::max(all->worst_ppm, one.worst_ppm);
    all->rms_ppm = std::max(all->rms_ppm, one.rms_ppm);
    all->slips = std::max<double>(all->slips, one.slips);
    all->idea_ppm = std::max(all->idea_ppm, one.idea_ppm);
    all->mean_commands += one.commands_h;
}

static RUN_T make_run(const ROW_T &row, int rate, double ppm, int start)
{
    RUN_T run;
    run.ppm = ppm;
    run.band = 16;
    row.set_up(&run);
    run.rate_hz = rate_rows[rate].rate_hz;
    run.start = start;
    run.ppm += 0.7 * start;
    return run;
}

static FIGURES_T play_row(const ROW_T &row, bool is_short)
{
    static constexpr double all_sources[] = {0, 50, 100, -80};
    const int starts = is_short ? 1 : row.starts;
    const int sources = row.all_sources ? static_cast<int>(std::size(all_sources)) : 1;
    FIGURES_T all = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int rate = row.first; rate <= row.last; rate++) {
        for (int source = 0; source < sources; source++) {
            for (int start = 1; start <= starts; start++)
                add_result(&all, play(make_run(row, rate, all_sources[source], start)));
        }
    }
    all.mean_commands /= (row.last - row.first + 1) * sources * starts;
    return all;
}

/* One figure beside its limit; returns whether it is within. */
static bool print_figure(double figure, double limit)
{
    char bound[16] = "";
    if (std::isfinite(limit)) (void)snprintf(bound, sizeof(bound), "/%g", limit);
    const bool is_met = figure <= limit;
    (void)printf("%7.*f%-5s%c", limit < 10 ? 2 : 1, figure, bound, is_met ? ' ' : '!');
    return is_met;
}

static bool print_row(const ROW_T &row, const FIGURES_T &all)
{
    static constexpr double FIGURES_T::*columns[] = {
        &FIGURES_T::peak,       &FIGURES_T::settled,       &FIGURES_T::lock_s,
        &FIGURES_T::commands_h, &FIGURES_T::mean_commands, &FIGURES_T::worst_ppm,
        &FIGURES_T::rms_ppm,    &FIGURES_T::idea_ppm,      &FIGURES_T::slips};
    bool is_met = true;
    (void)printf("%-31s", row.name);
    for (const auto column : columns)
        is_met = print_figure(all.*column, row.limit.*column) && is_met;
    (void)printf("%s\n", is_met ? "" : "MISSED");
    (void)fflush(stdout);
    return is_met;
}

static int play_table(bool is_short)
{
    bool is_met = true;
    (void)printf("%-31s", "figure/limit");
    for (const char *column : {"peak", "settled", "locked in s", "commands/h", "mean of it",
                               "source ppm", "rms", "clock ppm", "slips"})
        (void)printf("%12s ", column);
    (void)printf("\n");
    for (const ROW_T &row : rows)
        is_met = print_row(row, play_row(row, is_short)) && is_met;
    (void)printf("%s\n", is_met ? "every figure is within its limit" : "a limit is missed (!)");
    return is_met ? 0 : 1;
}

// ---- For the plots

static void write_trace(const std::string &path, RUN_T run)
{
    run.trace = fopen(path.c_str(), "w");
    if (run.trace == nullptr) return perror(path.c_str());
    (void)play(run);
    (void)fclose(run.trace);
}

static RUN_T stream(double ppm, double seconds, double trace_s)
{
    RUN_T run;
    small_transfers(&run);
    run.ppm = ppm;
    run.band = 16;
    run.seconds = seconds;
    run.trace_s = trace_s;
    return run;
}

static void write_traces(const std::string &folder)
{
    write_trace(folder + "/cold", stream(90, 120, 0.1));

    RUN_T drifting = stream(0, 24 * 3600, 10);
    drifting.source = drift;
    write_trace(folder + "/drift", drifting);

    RUN_T restarted = stream(90, 180, 0.1);
    restarted.event = RESTART;
    restarted.event_s = 60.5;
    restarted.end_s = 61.5;
    restarted.list_s = 1;
    write_trace(folder + "/restart", restarted);

    RUN_T run = stream(50, 300, 0.1);
    large_transfers(&run);
    write_trace(folder + "/new", run);
    run.law = PROPORTIONAL;
    run.report_s = 0.1;
    write_trace(folder + "/old", run);
}

/* Band, mean of the commands and largest way off the target, for sources between two steps. */
static int write_trade(const std::string &folder)
{
    FILE *file = fopen((folder + "/trade").c_str(), "w");
    if (file == nullptr) return -1;
    for (const double band : {1, 2, 4, 8, 16, 32, 64}) {
        FIGURES_T all = {0, 0, 0, 0, 0, 0, 0, 0, 0};
        for (int source = 0; source < 16; source++) {
            RUN_T run = stream(50 + source, 3600, 1); // a step is 15.6 ppm at 48000 Hz
            run.band = band;
            add_result(&all, play(run));
        }
        (void)fprintf(file, "%g %.0f %.1f\n", band, all.mean_commands / 16, all.settled);
    }
    return fclose(file);
}

int main(int argc, char **argv)
{
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::FATAL); // the engine logs each step
    (void)setenv("SI5351_SIM_REGISTERS", "/", 1); // a folder: the chip lies in memory only
    if (argc == 1) return play_table(false);
    if (argc == 2 && strcmp(argv[1], "short") == 0) return play_table(true);
    if (argc == 3 && strcmp(argv[1], "plot") == 0) {
        write_traces(argv[2]);
        return write_trade(argv[2]) == 0 ? 0 : 1;
    }
    (void)fprintf(stderr, "usage: %s [short | plot FOLDER]\n", argv[0]);
    return 2;
}
