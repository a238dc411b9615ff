/* Rate, trims and centre: send, then look. */
#include "ctl/commands.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "ctl/clock.h"
#include "ctl/sockets.h"

static constexpr const char *SWITCHED_OFF =
    "chip writes are switched off; si5351ctl enable lets them through";

static std::string list_rates()
{
    std::string text;
    for (const RATE_ROW_T &row : rate_rows)
        text += (text.empty() ? "" : ", ") + std::to_string(row.rate_hz);
    return text;
}

static void print_clock(int ch, const SI5351_LISTED_T &listed)
{
    const CLOCK_T clock = work_out_clock(listed);
    (void)printf("%s: %d Hz, clock %.2f Hz, %+.2f ppm, %s\n", path_names[ch - 1], listed.rate_hz,
                 clock.hz, clock.ppm, describe_trim(clock).c_str());
}

RESULT_E set_rate(int ch, int rate_hz)
{
    const RATE_ROW_T *rate = find_rate(rate_hz);
    if (rate == nullptr) {
        return fail(NOT_SO, "refused: %d Hz is not supported, and was not sent; use %s", rate_hz,
                    list_rates().c_str());
    }
    switch (set_param_within(client_socket(), ch, rate_hz, ANSWER_WAIT_MS)) {
    case 0:
        print_clock(ch, {rate_hz, static_cast<int32_t>(rate->num), ""});
        return DONE;
    case 1:
        return fail(NOT_SO, "%s: refused: %s", path_names[ch - 1], SWITCHED_OFF);
    default:
        return fail_no_service();
    }
}

/* How a channel stands; one that takes no trims is told. */
static RESULT_E look_at(int ch, SI5351_LISTED_T *listed)
{
    SI5351_LISTED_T all[CHANNEL_COUNT];
    if (list_channels(client_socket(), all, ANSWER_WAIT_MS) != 0) return fail_no_service();
    *listed = all[ch - 1];
    if (work_out_clock(*listed).known) return DONE;
    return fail(NOT_SO, "%s takes no trims at %d Hz; set a supported rate: si5351ctl rate %d 48000",
                path_names[ch - 1], listed->rate_hz, ch);
}

/* Sends a trim several times and looks. The socket buffer of the service holds all of them. */
static RESULT_E send_trims(int (*trim)(int, int), int ch, int times, SI5351_LISTED_T *before,
                           SI5351_LISTED_T *after)
{
    const RESULT_E result = look_at(ch, before);
    if (result != DONE) return result;
    for (int i = 0; i < times; i++) {
        if (trim(client_socket(), ch) != 0) return fail(NOT_SO, "a trim could not be sent");
    }
    return look_at(ch, after);
}

RESULT_E trim_clock(int ch, int direction, int steps)
{
    SI5351_LISTED_T before = {};
    SI5351_LISTED_T after = {};
    int (*trim)(int, int) = direction > 0 ? set_increase : set_decrease;
    const RESULT_E result = send_trims(trim, ch, steps, &before, &after);
    if (result != DONE) return result;

    const int left = steps_left(work_out_clock(before).position, direction);
    const bool moved = after.value != before.value;
    if (!moved && left > 0) {
        return fail(NOT_SO,
                    "%s: did not move: %s; or its step size was changed, and its range ends here",
                    path_names[ch - 1], SWITCHED_OFF);
    }
    print_clock(ch, after);
    // with a changed step size it can move on where a range of the usual steps has ended
    if (steps <= left || (moved && left == 0)) return DONE;
    return fail(NOT_SO, "%s: at the end of its range, %d of %d steps done", path_names[ch - 1],
                left, steps);
}

/* Off the centre a channel stands whole steps away; a learned centre hardly ever does. */
static bool is_off_centre(const SI5351_LISTED_T &listed)
{
    const double position = work_out_clock(listed).position;
    return position != 0 && position == std::round(position);
}

RESULT_E centre_clock(int ch)
{
    SI5351_LISTED_T before = {};
    SI5351_LISTED_T after = {};
    // from anywhere; at the centre the rest does nothing
    const RESULT_E result = send_trims(set_reset, ch, TRIM_LIMIT, &before, &after);
    if (result != DONE) return result;
    if (after.value == before.value && is_off_centre(after))
        return fail(NOT_SO, "%s: did not move: %s", path_names[ch - 1], SWITCHED_OFF);
    print_clock(ch, after);
    return DONE;
}
