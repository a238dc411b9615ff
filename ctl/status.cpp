/* Text and JSON of what is known of the service. */
#include "ctl/status.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "ctl/sockets.h"

static constexpr int BAR_WIDTH = 20;

std::string describe_age(double age_s)
{
    char text[64];
    if (age_s < 0) return "in the future: the clock of this machine was set back";
    if (age_s < 100) {
        (void)snprintf(text, sizeof(text), "%.1f s ago", age_s);
    } else if (age_s < 6000) {
        (void)snprintf(text, sizeof(text), "%.0f min ago", age_s / 60);
    } else {
        (void)snprintf(text, sizeof(text), "%.0f h ago", age_s / 3600);
    }
    return text;
}

static std::string draw_bar(const FIFO_T &fifo)
{
    const double share = std::clamp(static_cast<double>(fifo.fill) / fifo.size, 0.0, 1.0);
    const auto full = static_cast<size_t>(std::lround(share * BAR_WIDTH));
    return "[" + std::string(full, '#') + std::string(BAR_WIDTH - full, '.') + "]";
}

std::string describe_fifo(const SNAPSHOT_T &snapshot, int i)
{
    const FIFO_T &fifo = snapshot.fifos[i];
    if (fifo.size <= 0) return "no report yet";
    const double percent = 100.0 * fifo.fill / fifo.size;
    char text[96];
    (void)snprintf(text, sizeof(text), "%d of %d, %.0f %%", fifo.fill, fifo.size, percent);
    return draw_bar(fifo) + " " + text;
}

/* The file is as old as the newest report, of whichever channel. */
static std::string describe_report_age(const SNAPSHOT_T &snapshot)
{
    int reporting = 0;
    for (const FIFO_T &fifo : snapshot.fifos)
        reporting += fifo.size > 0 ? 1 : 0;
    return describe_age(snapshot.report_age_s) + (reporting > 1 ? " or earlier" : "");
}

static void print_channel(const SNAPSHOT_T &snapshot, int i)
{
    const SI5351_LISTED_T &listed = snapshot.listed[i];
    const CLOCK_T &clock = snapshot.clocks[i];
    (void)printf("\n%d %-10s  ", i + 1, path_names[i]);
    if (!snapshot.answers) {
        (void)printf("clock not known\n");
    } else if (clock.known) {
        (void)printf("%6d Hz  %11.2f Hz  %+7.2f ppm  last command: %s\n", listed.rate_hz, clock.hz,
                     clock.ppm, listed.status);
        (void)printf("  trim  %s\n", describe_trim(clock).c_str());
    } else if (clock.rate == nullptr) {
        (void)printf("%6d Hz REFUSED: the clock is what it was before, and takes no trims; "
                     "last command: %s\n",
                     listed.rate_hz, listed.status);
    } else {
        (void)printf("%6d Hz, but its numerator %d is out of range: clock not known\n",
                     listed.rate_hz, listed.value);
    }
    if (!snapshot.has_reports) return;
    (void)printf("  fifo  %s", describe_fifo(snapshot, i).c_str());
    if (snapshot.fifos[i].size > 0) (void)printf(", %s", describe_report_age(snapshot).c_str());
    (void)printf("\n");
}

static void print_text(const SNAPSHOT_T &snapshot)
{
    (void)printf("service     %s\n", snapshot.answers ? "answers" : "DOES NOT ANSWER");
    const std::string systemd = read_systemd_status();
    if (!systemd.empty()) (void)printf("systemd     %s\n", systemd.c_str());
    if (!snapshot.has_reports && snapshot.reports_fault.empty())
        (void)printf("fifos       no report yet\n");
    const bool knows_channels = snapshot.answers || snapshot.has_reports;
    for (int i = 0; knows_channels && i < CHANNEL_COUNT; i++)
        print_channel(snapshot, i);
}

static nlohmann::ordered_json channel_json(const SNAPSHOT_T &snapshot, int i)
{
    nlohmann::ordered_json channel = {{"channel", i + 1}, {"path", path_names[i]}};
    const CLOCK_T &clock = snapshot.clocks[i];
    if (snapshot.answers) {
        channel["rate_hz"] = snapshot.listed[i].rate_hz;
        channel["rate_refused"] = clock.rate == nullptr;
        channel["last_command"] = snapshot.listed[i].status;
    }
    if (clock.known) {
        channel["clock_hz"] = clock.hz;
        channel["ppm"] = clock.ppm;
        channel["position"] = clock.position;
        channel["left_faster"] = steps_left(clock.position, 1);
        channel["left_slower"] = steps_left(clock.position, -1);
    }
    if (snapshot.fifos[i].size > 0) {
        channel["fifo_size"] = snapshot.fifos[i].size;
        channel["fifo_fill"] = snapshot.fifos[i].fill;
    }
    return channel;
}

static void print_json(const SNAPSHOT_T &snapshot)
{
    nlohmann::ordered_json status = {{"service", snapshot.answers}};
    const std::string systemd = read_systemd_status();
    if (!systemd.empty()) status["systemd"] = systemd;
    if (snapshot.has_reports) status["newest_report_age_s"] = snapshot.report_age_s;
    if (!snapshot.reports_fault.empty()) status["reports_fault"] = snapshot.reports_fault;
    for (int i = 0; i < CHANNEL_COUNT; i++)
        status["channels"].push_back(channel_json(snapshot, i));
    // bytes that are no UTF-8 must not throw
    const auto replace = nlohmann::json::error_handler_t::replace;
    (void)printf("%s\n", status.dump(2, ' ', false, replace).c_str());
}

static RESULT_E judge(const SNAPSHOT_T &snapshot)
{
    if (!snapshot.answers) return fail_no_service();
    RESULT_E result = DONE;
    if (!snapshot.reports_fault.empty()) {
        result = fail(NOT_SO, "FIFO reports are not known: %s", snapshot.reports_fault.c_str());
    }
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        if (snapshot.clocks[i].known) continue;
        const bool is_refused = snapshot.clocks[i].rate == nullptr;
        result = fail(NOT_SO, "%s has a %s; set a supported rate: si5351ctl rate %d 48000",
                      path_names[i], is_refused ? "refused rate" : "numerator out of range", i + 1);
    }
    return result;
}

RESULT_E print_status(bool as_json)
{
    const SNAPSHOT_T snapshot = take_snapshot(ANSWER_WAIT_MS);
    as_json ? print_json(snapshot) : print_text(snapshot);
    return judge(snapshot);
}
