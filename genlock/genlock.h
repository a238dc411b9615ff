/* The follower: finds from the fill of a FIFO when to trim a channel's clock one step, so that the
 * FIFO keeps its level and the clock keeps in step with the source.
 *
 * One record a channel, one thread a record. The functions calculate and do nothing else: no system
 * call, no allocation, no log. The caller sends the steps to the clock service:
 *
 *     const int step = genlock_update(&lock, fill, now);
 *     if (step > 0) set_increase(sock, ch);
 *     if (step < 0) set_decrease(sock, ch);
 *
 * docs/genlock.md shows where this stands in an audio program, and what to expect. */
#pragma once

#ifndef __cplusplus
#error "This header is for C++."
#endif

#include <cstdint>

struct RATE_ROW_T;

/* What the follower knows of one stream. Frequencies are in ppm above 128 times the sample rate,
 * for the source the rate of its frames. */
struct GENLOCK_T {
    // To set at any time.
    double target; // the fill to hold, in frames; half the size after genlock_init
    double band;   // frames either way of the target in which the fill is left alone: fewer frames,
                   // more steps; a 32nd of the size within 4 to 64 after genlock_init
    int32_t step;  // trim step of the channel, in units of the numerator; as the service starts

    // To read. All of it stands a tenth of a second back.
    double fill_off;   // fill less target, in frames, freed of the jumps of the transfers
    double source_ppm; // frequency of the source
    double wander;     // largest |fill_off| of the last one to two minutes, in frames
    bool locked;       // for 5 s: fill near its target, source known within 4 ppm
    bool saturated;    // the end of the range is reached, and the fill wants more
    bool holding;      // the FIFO is empty or full: there is nothing to follow, no step is given
    int32_t position;  // trim position in steps, -24 to 24; positive is faster

    // The follower's own.
    const RATE_ROW_T *rate;
    int32_t size;           // of the FIFO in frames
    int64_t learned;        // centre of the trims less the nominal one, in units of the numerator
    double noise_floor;     // frames^2
    double noise;           // variance of a reading, in frames^2
    double last_error;      // of a reading against what was expected, in frames
    int32_t readings;       // so far, at most as many as the noise is averaged over
    int32_t cuts;           // cut readings in a row; negative: below what was expected
    double level;           // fill as the observer has it, in frames
    double var_level;       // variance of level (frames^2),
    double covariance;      // of level and source_ppm (frames ppm),
    double var_source;      // and of source_ppm (ppm^2)
    double clock_then;      // the clock in the interval before the present one, in ppm
    double last_now;        // time of the last update in s
    double part;            // of the present interval gone by, 0 to 1
    double flat, rising;    // its fills so far, weighted evenly and by a slope up from 0 to 1
    double rising_before;   // as rising, of the interval before
    int32_t fill;           // as last told, in frames
    int32_t whole;          // intervals that the window holds, 0 to 2
    bool has_level;         // a reading was taken since the fill was forgotten
    int32_t lock_ticks;     // readings in a row that were fit for locked
    int32_t attempt_ticks;  // readings since the last step beyond the end of the range
    int32_t wander_ticks;   // readings in the present minute
    double peak, last_peak; // largest |fill_off| of the present minute and of the one before
};

/**
 * Begins to follow a stream of which nothing is known. The channel stands at the centre of its
 * trims, as after set-param.
 * @param lock     the record to set up
 * @param rate_hz  44100, 48000, 88200, 96000, 176400 or 192000 Hz
 * @param size     what the FIFO holds at most, in frames, from 1
 * @param jump     0 when every transfer is told as it happens, or the fill moves evenly; else the
 *                 largest transfer in frames, by which a fill that is told by a timer may be wrong
 * @return 0; -1 null, another rate, or a size below 1: the record is unchanged
 */
int genlock_init(GENLOCK_T *lock, int32_t rate_hz, int32_t size, int32_t jump);

/**
 * Takes a fill, and says which step to trim. To be called after every transfer into the FIFO and
 * out of it. The follower takes each step that it gives for done.
 * @param lock  a record that genlock_init has set up
 * @param fill  frames in the FIFO after the transfer
 * @param now   time of the transfer in s, from any origin, in order. After more than 3 s without a
 *              call, or a time that runs back, the fill is read anew; the source stays known.
 * @return 1 trim one step up (faster), -1 one step down (slower), 0 leave it; at most one step in
 *         0.1 s
 */
int genlock_update(GENLOCK_T *lock, int32_t fill, double now);

/**
 * The channel was set to a sample rate, and with it to the centre of its trims. The fill is read
 * anew, the source stays known in ppm; step is that of the rate again.
 * @return 0; -1 a rate that is none of the six, nothing changed
 */
int genlock_set_rate(GENLOCK_T *lock, int32_t rate_hz);

/** Frames were lost or inserted, as after a FIFO ran empty or full: the fill is read anew. */
void genlock_slipped(GENLOCK_T *lock);

/**
 * Puts the follower's idea of the position right.
 * @param value  the numerator that the service lists for the channel, after all steps sent so far.
 *               One that is not of this rate and step (0 after a refused rate) changes nothing.
 */
void genlock_set_value(GENLOCK_T *lock, int32_t value);

/** @return the clock at the follower's position, in ppm above 128 times the sample rate */
double genlock_clock_ppm(const GENLOCK_T *lock);
