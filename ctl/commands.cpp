/* Rate, trims and centre: send, then look. */
#include "ctl/commands.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "ctl/clock.h"
#include "ctl/sockets.h"

static constexpr const char *SWITCHED_OFF =
    "chip writes are switched off; si5351ctl enable lets them through";

static void print_clock(int ch, const SI5351_LISTED_T &listed)
{
    const CLOCK_T clock = work_out_clock(listed);
    (void)printf("%s: %d Hz, ", path_names[ch - 1], listed.rate_hz);
    if (clock.known) (void)printf("clock %.2f Hz, %+.2f ppm, ", clock.hz, clock.ppm);
    (void)printf("%s\n", describe_trim(clock).c_str());
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
    if (work_out_clock(*listed).rate != nullptr) return DONE;
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
        if (trim(client_socket(), ch) != 0)
            return fail(NOT_SO, "a trim could not be sent: %s; try again", strerror(errno));
    }
    return look_at(ch, after);
}

static RESULT_E fail_unmoved(int ch)
{
    return fail(NOT_SO,
                "%s did not move as asked: its range ends here, it is at its centre, its step size "
                "was changed, or %s",
                path_names[ch - 1], SWITCHED_OFF);
}

RESULT_E trim_clock(int ch, int direction, int steps)
{
    SI5351_LISTED_T before = {};
    SI5351_LISTED_T after = {};
    int (*trim)(int, int) = direction > 0 ? set_increase : set_decrease;
    const RESULT_E result = send_trims(trim, ch, steps, &before, &after);
    if (result != DONE) return result;

    print_clock(ch, after);
    const double position = work_out_clock(after).position;
    const long moved = std::lround((position - work_out_clock(before).position) * direction);
    if (moved == steps) return DONE;
    if (position != TRIM_LIMIT * direction) return fail_unmoved(ch);
    return fail(NOT_SO, "%s: at the end of its range, %ld of %d steps done", path_names[ch - 1],
                moved, steps);
}

RESULT_E centre_clock(int ch)
{
    SI5351_LISTED_T before = {};
    SI5351_LISTED_T after = {};
    // from anywhere; at the centre the rest does nothing
    const RESULT_E result = send_trims(set_reset, ch, TRIM_LIMIT, &before, &after);
    if (result != DONE) return result;
    print_clock(ch, after);
    const CLOCK_T clock = work_out_clock(after);
    if (after.value != before.value) return DONE;
    if (clock.position != 0) return fail_unmoved(ch);
    if (clock.at_learned_centre) // also a part of a step of another size looks like this
        (void)printf("it did not move: it was at its centre, or chip writes are switched off\n");
    return DONE;
}
