/* The closed loop in virtual time, event by event. */
#include "rig/loop.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "genlock/genlock.h"
#include "sim/i2c_bus_sim.h"
#include "trim/bring_up.h"
#include "trim/rate.h"
#include "trim/trim.h"

static constexpr int32_t CHANNEL = 1;
static constexpr int32_t FIFO_SIZE = 4096;
static constexpr double TARGET = FIFO_SIZE / 2.0;
static constexpr double TICK_S = 0.01;     // longest time from event to event, but for
static constexpr double TICK_JITTER = 0.1; // this part of it: or single frames were told in step
static constexpr double STALL_S = 0.02;
static constexpr double SETTLE_S = 60;

/* One side of the FIFO. */
struct SIDE_T {
    double left; // frames until its next transfer
    double late; // frames by which jitter delays that
};

struct LOOP_T {
    const RUN_T *run;
    std::minstd_rand random;
    GENLOCK_T lock;
    double now;
    double clock_hz; // frames per second that the chip's output clocks out
    double level;    // even fill in frames
    int32_t fill;    // as the transfers leave it
    SIDE_T in, out;
    bool playing; // the consumer takes frames; not while it waits for the FIFO to fill up
    double next_list, next_trace, next_report;
    int32_t old_position;
    bool is_down; // a restart of the service is done
    int commands; // as settled
    double last_unlocked;
    double sum_ppm2; // of the errors of the estimate,
    int64_t errors;  // so many
    RESULT_T result;
};

static double draw(LOOP_T *loop)
{
    return std::uniform_real_distribution<double>(0, 1)(loop->random);
}

static double source_ppm(const LOOP_T *loop)
{
    const RUN_T &run = *loop->run;
    return run.source == nullptr ? run.ppm : run.source(run, loop->now);
}

// ---- The service

static void read_chip(LOOP_T *loop)
{
    loop->clock_hz = get_clock_hz(sim_read_output(CHANNEL - 1)) / 128;
}

static void start_service(LOOP_T *loop)
{
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++)
        (void)vx_si5351_set_conf(ch, 48000);
    (void)vx_si5351_start();
    read_chip(loop);
}

static void set_rate(LOOP_T *loop)
{
    (void)vx_si5351_set_param(CHANNEL, loop->run->rate_hz);
    read_chip(loop);
}

static void send_step(LOOP_T *loop, int step)
{
    if (step == 0) return;
    if (loop->now >= loop->run->end_s + SETTLE_S) loop->commands++;
    if (draw(loop) < loop->run->lost) return;
    drive_channel(CHANNEL, step > 0 ? VX_SI5351_SET_INC : VX_SI5351_SET_DEC,
                  g_s32EnableSi5351.load() != 0);
    read_chip(loop);
}

static void play_event(LOOP_T *loop)
{
    const RUN_T &run = *loop->run;
    const bool is_on = run.event != NO_EVENT && loop->now >= run.event_s && loop->now < run.end_s;
    g_s32EnableSi5351 = run.event == WRITES_OFF && is_on ? 0 : 1;
    if (run.event == RESTART && is_on && !loop->is_down) start_service(loop);
    loop->is_down = is_on;
}

// ---- The consumer

/* The law of before: each 4 frames off the target ask for one step. */
static int follow_proportionally(LOOP_T *loop)
{
    const int off = loop->fill - FIFO_SIZE / 2 - loop->old_position * 4;
    if (std::abs(off) < 4) return 0;
    const int step = off > 0 ? 1 : -1;
    if (std::abs(loop->old_position + step) > 24) return 0;
    loop->old_position += step;
    return step;
}

static void follow(LOOP_T *loop)
{
    if (loop->run->law == PROPORTIONAL) return send_step(loop, follow_proportionally(loop));
    send_step(loop, genlock_update(&loop->lock, loop->fill, loop->now));
}

// ---- The FIFO

/* The even fill is what the transfers left, and the parts of those that are under way. */
static void begin_at(LOOP_T *loop, int32_t fill)
{
    loop->fill = fill;
    loop->level = fill - loop->in.left + loop->out.left;
    loop->playing = true;
    genlock_slipped(&loop->lock);
}

/* It ran empty, and the consumer waits until half of it is filled; or full, and half is dropped. */
static void slip(LOOP_T *loop)
{
    if (loop->playing) loop->result.slips++;
    if (loop->fill > 0) return begin_at(loop, FIFO_SIZE / 2);
    loop->playing = false;
    loop->fill = 0;
}

static void resume(LOOP_T *loop)
{
    if (!loop->playing && loop->fill >= FIFO_SIZE / 2) begin_at(loop, loop->fill);
}

/* Tells the follower what a transfer has left, unless a timer does. */
static void tell_fill(LOOP_T *loop)
{
    if (loop->run->report_s == 0) follow(loop);
}

static void tell_by_timer(LOOP_T *loop)
{
    if (loop->run->report_s == 0 || loop->now < loop->next_report) return;
    loop->next_report += loop->run->report_s;
    follow(loop);
}

/* Returns whether a transfer of this side is due, and sets the time of its next. */
static bool take_transfer(LOOP_T *loop, SIDE_T *side)
{
    if (side->left > 1e-9) return false;
    const bool stalls = draw(loop) < loop->run->stalls;
    const double late_s = stalls ? STALL_S : draw(loop) * loop->run->jitter_s;
    const double late = late_s * loop->run->rate_hz;
    side->left += loop->run->burst + late - side->late;
    side->late = late;
    return true;
}

static void transfer_in(LOOP_T *loop)
{
    if (!take_transfer(loop, &loop->in)) return;
    loop->fill += loop->run->burst;
    if (loop->fill > FIFO_SIZE) slip(loop);
    resume(loop);
    tell_fill(loop);
}

static void transfer_out(LOOP_T *loop)
{
    if (!take_transfer(loop, &loop->out)) return;
    loop->fill -= loop->run->burst;
    if (loop->fill < 0) slip(loop);
    tell_fill(loop);
}

/* Single frames come and go one at a time; what they leave is told at every tick. */
static int32_t count_frames(SIDE_T *side)
{
    const double frames = std::ceil(std::max(-side->left, 0.0));
    side->left += frames;
    return static_cast<int32_t>(frames);
}

static void move_single_frames(LOOP_T *loop)
{
    loop->fill += count_frames(&loop->in) - count_frames(&loop->out);
    if (loop->fill > FIFO_SIZE || loop->fill < 0) slip(loop);
    resume(loop);
    tell_fill(loop);
}

/* Lets time go on to the next event. */
static void pass_time(LOOP_T *loop)
{
    const double ppm = source_ppm(loop);
    const double in_hz = std::isnan(ppm) ? 0 : loop->run->rate_hz * (1 + ppm * 1e-6);
    const double out_hz = loop->playing ? loop->clock_hz : 0;
    double dt = TICK_S * (1 + TICK_JITTER * draw(loop));
    if (loop->run->report_s > 0) dt = std::min(dt, loop->next_report - loop->now);
    if (loop->run->burst > 0 && in_hz > 0) dt = std::min(dt, loop->in.left / in_hz);
    if (loop->run->burst > 0 && out_hz > 0) dt = std::min(dt, loop->out.left / out_hz);
    dt = std::max(dt, 0.0);
    loop->now += dt;
    loop->level += (in_hz - out_hz) * dt;
    loop->in.left -= in_hz * dt;
    loop->out.left -= out_hz * dt;
}

/* What the listing shows tells of steps that did not arrive, and of a restart: then the stream
 * begins again at the rate that it has. */
static void look_at_listing(LOOP_T *loop)
{
    if (loop->run->list_s == 0 || loop->now < loop->next_list) return;
    loop->next_list = loop->now + loop->run->list_s;
    const SI5351_CONF_T &record = channel_record(CHANNEL);
    if (record.rate != loop->run->rate_hz) {
        set_rate(loop);
        begin_at(loop, FIFO_SIZE / 2);
    }
    genlock_set_value(&loop->lock, record.value);
}

// ---- What is measured

static void note_result(LOOP_T *loop)
{
    const double ppm = source_ppm(loop);
    const double off = loop->playing && !std::isnan(ppm) ? std::fabs(loop->level - TARGET) : 0;
    loop->result.peak = std::max(loop->result.peak, off);

    if (!loop->lock.locked) loop->last_unlocked = loop->now;
    if (loop->now < loop->run->end_s + SETTLE_S) return;
    loop->result.settled = std::max(loop->result.settled, off);
    const double error = std::fabs(loop->lock.source_ppm - ppm);
    loop->result.worst_ppm = std::max(loop->result.worst_ppm, error);
    loop->sum_ppm2 += error * error;
    loop->errors++;
}

static void write_trace(LOOP_T *loop)
{
    if (loop->run->trace == nullptr || loop->now < loop->next_trace) return;
    loop->next_trace += loop->run->trace_s;
    const double clock_ppm = (loop->clock_hz / loop->run->rate_hz - 1) * 1e6;
    (void)fprintf(loop->run->trace, "%.2f %.2f %.3f %.3f %.3f %d\n", loop->now,
                  loop->level - TARGET, source_ppm(loop), loop->lock.source_ppm, clock_ppm,
                  loop->lock.locked ? 1 : 0);
}

static void start_loop(LOOP_T *loop)
{
    const RUN_T &run = *loop->run;
    loop->random.seed(static_cast<unsigned>(run.start) + 1);
    sim_reset();
    g_s32EnableSi5351 = 1;
    start_service(loop);
    set_rate(loop);
    (void)genlock_init(&loop->lock, run.rate_hz, FIFO_SIZE, run.report_s > 0 ? run.burst : 0);
    if (run.band > 0) loop->lock.band = run.band;
    // Transfers at any phase; what they have moved in the mean makes the even fill the target.
    loop->in.left = std::max(run.burst, 1) * draw(loop);
    loop->out.left = std::max(run.burst, 1) * draw(loop);
    begin_at(loop, static_cast<int32_t>(std::lround(TARGET + loop->in.left - loop->out.left)));
}

RESULT_T play(const RUN_T &run)
{
    LOOP_T loop = {};
    loop.run = &run;
    start_loop(&loop);
    while (loop.now < run.seconds) {
        pass_time(&loop);
        play_event(&loop);
        look_at_listing(&loop);
        if (run.burst > 0) {
            transfer_in(&loop);
            transfer_out(&loop);
        } else {
            move_single_frames(&loop);
        }
        tell_by_timer(&loop);
        note_result(&loop);
        write_trace(&loop);
    }
    loop.result.lock_s =
        loop.lock.locked ? std::max(loop.last_unlocked - run.end_s, 0.0) : INFINITY;
    loop.result.commands_h = loop.commands * 3600.0 / (run.seconds - run.end_s - SETTLE_S);
    loop.result.idea_ppm =
        std::fabs(genlock_clock_ppm(&loop.lock) - (loop.clock_hz / run.rate_hz - 1) * 1e6);
    loop.result.rms_ppm = std::sqrt(loop.sum_ppm2 / static_cast<double>(loop.errors));
    return loop.result;
}
