/* Sources that do not stay where they are: their ppm above the sample rate at a time of a run. */
#pragma once

#include "rig/loop.h"

/** Up and down within 20 ppm of the run's ppm, 0.1 ppm in a minute, as a crystal in a room does. */
double drift(const RUN_T &run, double now);

/** The same source, but none between event_s and end_s. */
double pause(const RUN_T &run, double now);

/** From event_s on another source, as far on the other side. */
double change_over(const RUN_T &run, double now);

/** From event_s on 1 ppm faster each second, until end_s. */
double ramp(const RUN_T &run, double now);

/** Between event_s and end_s at -115 ppm. */
double leave_range(const RUN_T &run, double now);
