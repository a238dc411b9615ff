/* The closed loop in virtual time: a source, a FIFO of 4096 frames, a consumer, the follower, and
 * the service's own engine over the simulated chip. The consumer's clock is what the chip makes of
 * its registers. */
#pragma once

#include <cstdint>
#include <cstdio>

enum LAW_E { OBSERVER, PROPORTIONAL };          // the follower, or what the example did before
enum EVENT_E { NO_EVENT, RESTART, WRITES_OFF }; // of the service

/* One run. Times are virtual seconds since its start, when the fill is at its target, half the
 * size. */
struct RUN_T {
    int32_t rate_hz = 48000;
    double ppm = 0;                                           // the source, above rate_hz
    double (*source)(const RUN_T &run, double now) = nullptr; // in its place; NAN: it has stopped
    int32_t burst = 0;     // frames in a transfer on both sides; 0: single frames
    double jitter_s = 0;   // a transfer may be so late
    double stalls = 0;     // part of the transfers that are 20 ms late
    int start = 1;         // chooses the phases of the transfers, what is late, and what is lost
    double report_s = 0;   // told by a timer; 0: every transfer, single frames every 10 to 11 ms
    double band = 0;       // frames; 0: as genlock_init sets it
    double seconds = 3600; // length of the run
    double event_s = 0;    // a disturbance begins,
    double end_s = 0;      // and is over; locking and settling count from here
    EVENT_E event = NO_EVENT;
    double list_s = 0; // the consumer looks at the service's listing so often; 0: never
    double lost = 0;   // part of the commands that do not arrive, 0 to 1
    LAW_E law = OBSERVER;
    FILE *trace = nullptr; // null, or where a line goes every trace_s: time, fill less target,
    double trace_s = 1;    // source, its estimate, clock (ppm), 1 for locked
};

/* What came of it. Frames are those of the even fill, freed of the jumps of the transfers; settled
 * is a run from a minute after end_s on. */
struct RESULT_T {
    double peak;    // frames off the target at most
    double settled; // the same as settled
    double
        lock_s; // from so long after end_s on it was locked to the end; INFINITY: it is not locked
    double commands_h; // commands in an hour, as settled
    double worst_ppm;  // error of the estimate of the source, as settled
    double rms_ppm;
    double idea_ppm; // error of the follower's idea of the clock at the end
    int slips;       // times that the FIFO ran empty or full
};

/** Plays a run; the engine and the simulated chip start afresh. */
RESULT_T play(const RUN_T &run);
