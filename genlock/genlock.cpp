/* The follower's law: an observer for fill and source, and a band in which the fill is left alone.
 *
 *     fills ──▶ reading ──▶ observer: level, source and their variances ──▶ band ──▶ step
 *                              ▲                                                      │
 *                              └───────────── the clock, known from the steps ◀───────┘
 *
 * The clock moves in whole steps, so no law can hold the fill still: between two positions it
 * zigzags. The observer knows each step that was given, so its own trims do not disturb its idea of
 * the source, and the band says how wide the zigzag may be. */
#include "genlock/genlock.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "chip/rates.h"

static constexpr double TICK_S = 0.1;       // a reading each; transfers come every 1 to 100 ms
static constexpr double SILENCE_S = 3;      // longer than any pause of a stream that goes on
static constexpr double START_PPM = 60;     // standard deviation of a source: crystals keep 100 ppm
static constexpr double DRIFT_PPM2_S = 0.1; // variance by which a source wanders: 0.3 ppm in 1 s
static constexpr double WHOLE_FRAMES = 0.25;   // variance of a whole number of frames is 1/12; the
                                               // rest is for what a reading of few fills leaves
static constexpr int32_t NOISE_READINGS = 300; // 30 s, over which the noise is averaged
static constexpr double LEVEL_DOUBT = 100;     // times its noise, the variance of a first reading:
                                               // that noise is not known at once
static constexpr double CUT_SIGMA = 4;         // a reading further off counts as this far
static constexpr int32_t JUMP_CUTS = 8;        // so many on one side: the fill itself has jumped
static constexpr double RETURN_S = 10;         // what is off the band goes in about this time
static constexpr double SLOW_DOWN = 7.0 / 8; // of a step's speed: from there a step leaves at most
                                             // an eighth
static constexpr double LOCK_PPM = 4;        // the source known so well, and
static constexpr int32_t LOCK_TICKS = 50;    // for 5 s, is locked
static constexpr int32_t ATTEMPT_TICKS = 50; // 5 s between steps beyond the end of the range
static constexpr int32_t WANDER_TICKS = 600; // a minute

// ---- The clock, as the service makes it

double genlock_clock_ppm(const GENLOCK_T *lock)
{
    const int64_t off = lock->position == 0 ? lock->learned : -int64_t{lock->position} * lock->step;
    return offset_ppm(*lock->rate, lock->rate->num + static_cast<double>(off));
}

/* g: what a step changes in the speed of the fill, in frames/s; 0.74 to 0.84 at the six rates. */
static double step_speed(const GENLOCK_T *lock)
{
    const double ratio = lock->rate->mult * double{RATIO_DENOM} + lock->rate->num;
    return lock->rate->rate_hz * (lock->step / ratio);
}

/* The service moves the centre at each return to it, towards the side that it came from. */
static void learn_centre(GENLOCK_T *lock, int32_t direction)
{
    const int32_t side = direction; // a step faster came from the slow side: larger numerators
    const int64_t off = lock->learned * side;
    if (off < 0 || off > int64_t{lock->step} * CENTRE_BAND_STEPS) lock->learned = 0;
    lock->learned += int64_t{side} * (lock->step / CENTRE_CREEP);
}

static void move_clock(GENLOCK_T *lock, int32_t direction)
{
    lock->position += direction;
    if (lock->position == 0) learn_centre(lock, direction);
}

void genlock_set_value(GENLOCK_T *lock, int32_t value)
{
    const int64_t off = int64_t{value} - lock->rate->num;
    if (lock->step <= 0 || std::abs(off) > int64_t{lock->step} * TRIM_LIMIT) return;
    // A learned centre may lie where a step does: then the present idea holds.
    if (lock->position == 0 && off == lock->learned) return;
    const bool is_centre = off % lock->step != 0;
    lock->position = is_centre ? 0 : static_cast<int32_t>(-off / lock->step);
    if (lock->position == 0) lock->learned = off;
}

// ---- Beginning, and beginning again

/* The window must fill up before the next reading, and that one is taken as it is. */
static void forget_level(GENLOCK_T *lock)
{
    lock->whole = 0;
    lock->has_level = false;
    lock->cuts = 0;
    lock->lock_ticks = 0;
    lock->locked = false;
}

static void put_at_centre(GENLOCK_T *lock, const RATE_ROW_T *rate)
{
    lock->rate = rate;
    lock->step = rate->start_step;
    lock->position = 0;
    lock->learned = 0;
    lock->saturated = false;
    lock->clock_then = genlock_clock_ppm(lock);
}

int genlock_init(GENLOCK_T *lock, int32_t rate_hz, int32_t size, int32_t jump)
{
    const RATE_ROW_T *rate = find_rate(rate_hz);
    if (lock == nullptr || rate == nullptr || size < 1) return -1;
    *lock = {};
    put_at_centre(lock, rate);
    lock->size = size;
    lock->target = size / 2.0;
    lock->band = std::clamp(size / 32.0, 4.0, 64.0);
    lock->noise_floor = WHOLE_FRAMES + 1.0 * jump * jump / 12; // evenly spread over the jump
    lock->noise = lock->noise_floor;
    lock->source_ppm = genlock_clock_ppm(lock);
    lock->var_source = START_PPM * START_PPM;
    lock->last_now = NAN; // no time is less than a silence after it
    return 0;
}

int genlock_set_rate(GENLOCK_T *lock, int32_t rate_hz)
{
    const RATE_ROW_T *rate = find_rate(rate_hz);
    if (rate == nullptr) return -1;
    put_at_centre(lock, rate);
    forget_level(lock);
    return 0;
}

void genlock_slipped(GENLOCK_T *lock)
{
    forget_level(lock);
}

// ---- Reading

/* Adds the fill that stands now, up to a part of the interval. */
static void add_fill(GENLOCK_T *lock, double end)
{
    lock->flat += lock->fill * (end - lock->part);
    lock->rising += lock->fill * (end * end - lock->part * lock->part) / 2;
    lock->part = end;
}

/* Ends an interval. The window is this one and the one before, with a weight that rises over the
 * first and falls over the second: transfers that come and go with any period of less than an
 * interval all but vanish. The mean stands for the instant between the two.
 * Returns whether the window is whole. */
static bool close_interval(GENLOCK_T *lock, double *mean)
{
    *mean = lock->rising_before + lock->flat - lock->rising;
    lock->rising_before = lock->rising;
    lock->flat = lock->rising = lock->part = 0;
    if (lock->whole < 2) lock->whole++;
    return lock->whole == 2;
}

// ---- Observer

static double frames_per_ppm(const GENLOCK_T *lock) // k, in each second
{
    return lock->rate->rate_hz * 1e-6;
}

/* level += k (source - clock) dt, and the variances with it; the source may have wandered. */
static void predict(GENLOCK_T *lock, double clock_ppm)
{
    const double frames = frames_per_ppm(lock) * TICK_S; // k dt
    lock->level += frames * (lock->source_ppm - clock_ppm);
    lock->var_level += 2 * frames * lock->covariance + frames * frames * lock->var_source;
    lock->covariance += frames * lock->var_source;
    lock->var_source += DRIFT_PPM2_S * TICK_S;
}

/* The noise follows the square of the change of the error from reading to reading, to which an
 * offset adds nothing. The first n count 1/n each, so that it is about right at once. */
static void learn_noise(GENLOCK_T *lock, double error)
{
    const double change = error - lock->last_error;
    lock->last_error = error;
    lock->readings = std::min(lock->readings + 1, NOISE_READINGS);
    lock->noise += (change * change - lock->noise) / lock->readings;
    lock->noise = std::max(lock->noise, lock->noise_floor);
}

/* A stray reading may pull only so far. Many on one side are no strays: the fill has jumped, and
 * perhaps the source is another one. */
static double cut_error(GENLOCK_T *lock, double error)
{
    const double limit = CUT_SIGMA * std::sqrt(lock->var_level + lock->noise);
    if (std::fabs(error) <= limit) {
        lock->cuts = 0;
        return error;
    }
    if (error > 0) lock->cuts = std::max(lock->cuts, 0) + 1;
    if (error < 0) lock->cuts = std::min(lock->cuts, 0) - 1;
    return std::clamp(error, -limit, limit);
}

/* The gains are var / (var + noise) for the level and covariance / (var + noise) for the source. */
static void correct(GENLOCK_T *lock, double error)
{
    const double sum = lock->var_level + lock->noise;
    const double kept = lock->noise / sum; // 1 - gain, without the loss of digits
    lock->level += lock->var_level / sum * error;
    lock->source_ppm += lock->covariance / sum * error;
    lock->var_source -= lock->covariance / sum * lock->covariance;
    lock->covariance *= kept;
    lock->var_level *= kept;
}

/* The first reading since the fill was forgotten. */
static void take_level(GENLOCK_T *lock, double mean)
{
    lock->level = mean;
    lock->var_level = lock->noise * LEVEL_DOUBT;
    lock->covariance = 0;
    lock->last_error = 0;
    lock->has_level = true;
}

static void observe(GENLOCK_T *lock, double mean)
{
    if (!lock->has_level) return take_level(lock, mean);
    predict(lock, lock->clock_then);
    const double error = cut_error(lock, mean - lock->level);
    learn_noise(lock, error);
    correct(lock, error);
    if (std::abs(lock->cuts) < JUMP_CUTS) return;
    forget_level(lock);
    lock->var_source = START_PPM * START_PPM;
}

// ---- What the caller reads

static void note_wander(GENLOCK_T *lock)
{
    lock->peak = std::max(lock->peak, std::fabs(lock->fill_off));
    lock->wander = std::max(lock->peak, lock->last_peak);
    if (++lock->wander_ticks < WANDER_TICKS) return;
    lock->wander_ticks = 0;
    lock->last_peak = lock->peak;
    lock->peak = 0;
}

/* The band, but never narrower than what can be seen. */
static double band_frames(const GENLOCK_T *lock)
{
    return std::max(lock->band, 3 * std::sqrt(lock->var_level));
}

static void judge_lock(GENLOCK_T *lock)
{
    const bool is_near = std::fabs(lock->fill_off) < (lock->locked ? 4 : 2) * band_frames(lock);
    const bool is_known = lock->has_level && lock->var_source < LOCK_PPM * LOCK_PPM;
    const bool is_fit = is_near && is_known && !lock->saturated;
    lock->lock_ticks = is_fit ? std::min(lock->lock_ticks + 1, LOCK_TICKS) : 0;
    lock->locked = lock->lock_ticks == LOCK_TICKS;
}

/* A fill that stands at an end says nothing of the source, nor does the window in which it leaves
 * that end. */
static bool check_hold(GENLOCK_T *lock, double mean)
{
    const bool was_holding = lock->holding;
    lock->holding = mean < 0.5 || mean > lock->size - 0.5;
    if (!lock->holding && !was_holding) return false;
    forget_level(lock);
    return true;
}

static void take_reading(GENLOCK_T *lock, double mean)
{
    if (check_hold(lock, mean)) return;
    observe(lock, mean);
    lock->fill_off = lock->level - lock->target;
    note_wander(lock);
    judge_lock(lock);
}

static void end_interval(GENLOCK_T *lock)
{
    double mean = 0;
    lock->attempt_ticks = std::min(lock->attempt_ticks + 1, ATTEMPT_TICKS);
    if (close_interval(lock, &mean)) take_reading(lock, mean);
    lock->clock_then = genlock_clock_ppm(lock);
}

// ---- Decision

/* The step that the fill wants: 1 faster, -1 slower, 0 none, whether or not the range allows it. */
static int32_t want_step(const GENLOCK_T *lock)
{
    const double k = frames_per_ppm(lock);
    const double speed = k * (lock->source_ppm - genlock_clock_ppm(lock)); // of fill, frames/s
    const double step = step_speed(lock);
    const double doubt = 2 * k * std::sqrt(lock->var_source);
    const double off = std::fabs(lock->fill_off);
    const double band = band_frames(lock);
    const int32_t inward = lock->fill_off < 0 ? -1 : 1; // too full: the clock must run faster
    const double outward = inward * speed;

    // Near the target one step may slow it down: a source that lies on a position then stays there.
    if (off < band / 4 && std::fabs(speed) > SLOW_DOWN * step + doubt / 2)
        return speed > 0 ? 1 : -1;
    // Inside the band only against a speed that is more than a step too much; outside of it until
    // it comes back, the sooner the further it is off.
    if (outward > (off < band ? step + doubt : doubt - (off - band) / RETURN_S)) return inward;
    // It comes back faster than it needs to, by more than a step.
    if (outward < -(step + doubt + off / RETURN_S)) return -inward;
    return 0;
}

/* At the end of the range a step changes nothing. It is still sent now and then: the service
 * refuses it, or its channel was not at the end and moves there. */
static int32_t attempt_beyond(GENLOCK_T *lock, int32_t step)
{
    if (lock->attempt_ticks < ATTEMPT_TICKS) return 0;
    lock->attempt_ticks = 0;
    return step;
}

static int32_t decide(GENLOCK_T *lock)
{
    if (!lock->has_level || lock->cuts != 0) return 0;
    const int32_t step = want_step(lock);
    lock->saturated = std::abs(lock->position + step) > TRIM_LIMIT;
    if (lock->saturated) return attempt_beyond(lock, step);
    if (step != 0) move_clock(lock, step);
    return step;
}

int genlock_update(GENLOCK_T *lock, int32_t fill, double now)
{
    const double passed = now - lock->last_now;
    lock->last_now = now;
    if (!(passed >= 0 && passed <= SILENCE_S)) {
        forget_level(lock);
        lock->flat = lock->rising = lock->part = 0;
        lock->fill = fill;
        return 0;
    }
    double end = lock->part + passed / TICK_S; // in intervals
    const bool is_due = end >= 1;
    while (end >= 1) {
        add_fill(lock, 1);
        end_interval(lock);
        end -= 1;
    }
    add_fill(lock, end);
    lock->fill = fill;
    return is_due ? decide(lock) : 0;
}
