/* What a consumer of an audio stream does with the clock service: sets its channel's rate, reports
 * its FIFO, and trims the channel by the fill until the clock keeps in step with the source.
 *
 *     fifo_follower CHANNEL PPM [SECONDS]
 *
 * FIFO and source are simulated: 48000 frames/s come in, PPM faster (negative: slower), and go out
 * at the channel's clock. Without SECONDS it runs until it is killed. Try "fifo_follower 2 80".
 */
#include <cstdio>
#include <cstdlib>
#include <log4cpp/BasicConfigurator.hh>
#include <unistd.h>

#include "net/vx_net_api.h"
#include "service/si5351_client.h"

static constexpr int RATE_HZ = 48000;
static constexpr double STEP_PPM = 15.625; // one trim step at 48000 Hz; other rates have their own
static constexpr int TRIM_LIMIT = 24;      // steps either way
static constexpr int REPORTS_PER_S = 10;

/* The law is proportional: each 4 frames off half full ask for one step. The FIFO itself sums up
 * the difference of the clocks, so its fill already is an integral; a consumer that stepped up or
 * down on every report would sum up a second time and swing for ever.
 * A step moves the fill by 48000 * 15.625 ppm = 0.75 frames/s, so the fill settles with a time
 * constant of 4 / 0.75 = 5.3 s, and all 24 steps are in use 96 frames off the middle, well inside
 * the FIFO. A real fill jumps with every transfer: take more frames for a step than it jumps. */
static constexpr int FRAMES_PER_STEP = 4;
static constexpr int FIFO_SIZE = 256;
static constexpr int FIFO_HALF = FIFO_SIZE / 2;

/* The consumer: its channel, and where it has trimmed it to. */
struct FOLLOWER_T {
    int sock;
    int ch;
    int position; // in steps from the centre; positive is faster
};

/* One step in a direction; towards the centre by a reset, which can never lead beyond it. */
static int trim_clock(FOLLOWER_T *follower, int direction)
{
    int (*trim)(int, int) = direction > 0 ? set_increase : set_decrease;
    if (follower->position * direction < 0) trim = set_reset;
    if (trim(follower->sock, follower->ch) != 0) return -1;
    follower->position += direction;
    return 0;
}

/* Reports the fill, and moves the clock at most one step to the position the fill asks for. It
 * stays where it is until the fill is a whole step off: no to and fro over a single frame. */
static int follow_fill(FOLLOWER_T *follower, int fill)
{
    if (set_fifo_status(follower->sock, follower->ch, FIFO_SIZE, fill) != 0) return -1;
    const int off = fill - FIFO_HALF - follower->position * FRAMES_PER_STEP;
    if (abs(off) < FRAMES_PER_STEP) return 0;
    const int direction = off > 0 ? 1 : -1; // too full: the consumer must run faster
    if (follower->position == direction * TRIM_LIMIT) return 0;
    return trim_clock(follower, direction);
}

/* The simulated FIFO from one report to the next; full and empty it loses what does not fit. */
static double pass_time(double fill, int source_ppm, int position)
{
    fill += RATE_HZ * 1e-6 * (source_ppm - position * STEP_PPM) / REPORTS_PER_S;
    if (fill < 0) return 0;
    return fill < FIFO_SIZE ? fill : FIFO_SIZE;
}

static int run(FOLLOWER_T *follower, int source_ppm, int run_s)
{
    // Without a service this waits, and logs so every 2 s.
    if (send_set_param(follower->sock, follower->ch, RATE_HZ) != 0) return -1;
    double fill = FIFO_HALF;
    for (int report = 1; run_s <= 0 || report <= run_s * REPORTS_PER_S; report++) {
        (void)usleep(1000000 / REPORTS_PER_S);
        fill = pass_time(fill, source_ppm, follower->position);
        if (follow_fill(follower, static_cast<int>(fill)) != 0) return -1;
        if (report % REPORTS_PER_S != 0) continue;
        (void)printf("%4d s  fill %3d of %d  position %+3d, %+.3f ppm\n", report / REPORTS_PER_S,
                     static_cast<int>(fill), FIFO_SIZE, follower->position,
                     follower->position * STEP_PPM);
    }
    return 0;
}

/* A number of the command line, at most a million either way. */
static bool read_number(const char *text, int *number)
{
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    *number = static_cast<int>(value);
    return end != text && *end == '\0' && value >= -1000000 && value <= 1000000;
}

int main(int argc, char **argv)
{
    FOLLOWER_T follower = {};
    int source_ppm = 0;
    int run_s = 0;
    if (argc < 3 || argc > 4 || !read_number(argv[1], &follower.ch) ||
        !read_number(argv[2], &source_ppm) || (argc == 4 && !read_number(argv[3], &run_s))) {
        (void)fprintf(stderr, "usage: %s CHANNEL PPM [SECONDS]\n", argv[0]);
        return 2;
    }
    log4cpp::BasicConfigurator::configure(); // the client calls log: lines to standard output
    (void)setvbuf(stdout, nullptr, _IOLBF, 0);
    follower.sock = vx_create_sock(VX_SOCK_DATAGRAM);
    const int result = run(&follower, source_ppm, run_s);
    (void)vx_close_socket(&follower.sock);
    return result == 0 ? 0 : 1;
}
