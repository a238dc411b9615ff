/* A whole consumer of an audio stream: sets its channel's rate, tells each transfer of its FIFO to
 * the follower, sends the trim steps that it gives, and outlives a restart of the service.
 *
 *     fifo_follower CHANNEL PPM [SECONDS [RATE]]
 *
 * Source and FIFO are simulated: RATE frames/s come in (48000 without it), PPM faster (negative:
 * slower), and go out at the clock that the service lists for the channel. Without SECONDS it runs
 * until it is killed. Try "fifo_follower 2 80".
 */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <log4cpp/BasicConfigurator.hh>

#include "genlock/genlock.h"
#include "net/vx_net_api.h"
#include "service/si5351_client.h"

static constexpr int PERIOD = 1024; // frames in a transfer, in and out
static constexpr int FIFO_SIZE = 4096;
static constexpr int LIST_LIMIT_MS = 500;

struct CONSUMER_T {
    int sock;
    int ch;
    int rate_hz;
    GENLOCK_T lock;
    int fill; // frames in the FIFO
    // What an audio program has from its hardware.
    double source_hz, clock_hz; // frames in a second
    double now;                 // in s; here from the start
    double next_in, next_out;   // times of the next transfers
};

static double frames_per_s(int rate_hz, double ppm)
{
    return rate_hz * (1 + ppm * 1e-6);
}

/* The simulated clock runs as the service lists it; a real one comes to the hardware by itself. */
static void run_clock(CONSUMER_T *consumer, int rate_hz, int value)
{
    GENLOCK_T clock;
    if (genlock_init(&clock, rate_hz, FIFO_SIZE, 0) != 0) return;
    genlock_set_value(&clock, value);
    consumer->clock_hz = frames_per_s(rate_hz, genlock_clock_ppm(&clock));
}

/* Begins to play, or again after frames were lost: in the mean the FIFO is half full. */
static void begin(CONSUMER_T *consumer)
{
    consumer->fill = (FIFO_SIZE - PERIOD) / 2;
    consumer->next_out = consumer->next_in + PERIOD / 2.0 / consumer->source_hz;
    genlock_slipped(&consumer->lock);
}

/* The service has started again, with all channels at 48000 Hz. */
static int set_rate_again(CONSUMER_T *consumer)
{
    const int rate_hz = consumer->rate_hz;
    if (set_param_within(consumer->sock, consumer->ch, rate_hz, LIST_LIMIT_MS) != 0) return -1;
    (void)genlock_set_rate(&consumer->lock, rate_hz);
    consumer->clock_hz = frames_per_s(rate_hz, genlock_clock_ppm(&consumer->lock));
    begin(consumer);
    return 0;
}

/* Where the channel stands: shows a restart, and sets the follower right when a step was lost. */
static int look_at_listing(CONSUMER_T *consumer)
{
    SI5351_LISTED_T listed[SI5351_LISTED_COUNT];
    if (list_channels(consumer->sock, listed, LIST_LIMIT_MS) != 0) return -1;
    const SI5351_LISTED_T &mine = listed[consumer->ch - 1];
    run_clock(consumer, mine.rate_hz, mine.value);
    if (mine.rate_hz != consumer->rate_hz) return set_rate_again(consumer);
    genlock_set_value(&consumer->lock, mine.value);
    return 0;
}

/* Tells the follower what a transfer has left, at once, and does what it says. */
static int follow(CONSUMER_T *consumer)
{
    const int step = genlock_update(&consumer->lock, consumer->fill, consumer->now);
    if (step == 0) return 0;
    int (*trim)(int, int) = step > 0 ? set_increase : set_decrease;
    if (trim(consumer->sock, consumer->ch) != 0) return -1;
    (void)look_at_listing(consumer); // for the simulated clock; a real consumer need not
    return 0;
}

/* Once a second: the fill for the status file, the listing, and a line for whoever looks on. */
static int report(CONSUMER_T *consumer)
{
    const GENLOCK_T &lock = consumer->lock;
    if (set_fifo_status(consumer->sock, consumer->ch, FIFO_SIZE, consumer->fill) != 0) return -1;
    (void)look_at_listing(consumer); // logs a failure; a second later it tries again
    (void)printf("%4.0f s  fill %+.1f  source %+.1f ppm  clock %+.2f ppm  position %+d%s%s\n",
                 consumer->now, lock.fill_off, lock.source_ppm, genlock_clock_ppm(&lock),
                 lock.position, lock.locked ? "  locked" : "", lock.saturated ? "  saturated" : "");
    return 0;
}

/* Waits until the next transfer, and moves its frames; empty or full, the FIFO begins again at
 * half.
 */
static void transfer(CONSUMER_T *consumer)
{
    const bool comes_in = consumer->next_in <= consumer->next_out;
    double *next = comes_in ? &consumer->next_in : &consumer->next_out;
    const auto pause_ns = static_cast<long>((*next - consumer->now) * 1e9);
    const timespec pause = {pause_ns / 1000000000, pause_ns % 1000000000};
    (void)nanosleep(&pause, nullptr);
    consumer->now = *next;
    *next += PERIOD / (comes_in ? consumer->source_hz : consumer->clock_hz);
    consumer->fill += comes_in ? PERIOD : -PERIOD;
    if (consumer->fill < 0 || consumer->fill > FIFO_SIZE) begin(consumer);
}

static int run(CONSUMER_T *consumer, int run_s)
{
    // Without a service this waits, and logs so every 2 s.
    if (send_set_param(consumer->sock, consumer->ch, consumer->rate_hz) != 0) return -1;
    if (look_at_listing(consumer) != 0) return -1;
    for (int second = 1; run_s <= 0 || second <= run_s; second++) {
        while (consumer->now < second) {
            transfer(consumer);
            if (follow(consumer) != 0) return -1;
        }
        if (report(consumer) != 0) return -1;
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
    CONSUMER_T consumer = {};
    int ppm = 0;
    int run_s = 0;
    consumer.rate_hz = 48000;
    if (argc < 3 || argc > 5 || !read_number(argv[1], &consumer.ch) ||
        !read_number(argv[2], &ppm) || (argc > 3 && !read_number(argv[3], &run_s)) ||
        (argc > 4 && !read_number(argv[4], &consumer.rate_hz)) || consumer.ch < 1 ||
        consumer.ch > SI5351_LISTED_COUNT ||
        genlock_init(&consumer.lock, consumer.rate_hz, FIFO_SIZE, 0) != 0) {
        (void)fprintf(stderr, "usage: %s CHANNEL PPM [SECONDS [RATE]]\n", argv[0]);
        return 2;
    }
    consumer.source_hz = frames_per_s(consumer.rate_hz, ppm);
    begin(&consumer);
    log4cpp::BasicConfigurator::configure(); // the client calls log: lines to standard output
    (void)setvbuf(stdout, nullptr, _IOLBF, 0);
    consumer.sock = vx_create_sock(VX_SOCK_DATAGRAM);
    const int result = run(&consumer, run_s);
    (void)vx_close_socket(&consumer.sock);
    return result == 0 ? 0 : 1;
}
