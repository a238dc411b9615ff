/* Start-up: the two threads beside the main one. */
#pragma once

#include <pthread.h>

/* Handle of the service thread, 0 until it is created; never joined. */
extern pthread_t si5351tidp;

/**
 * Creates the console thread; a failure is logged.
 * @param unused  not used
 * @return 0, also on failure
 */
int si5351_debug_task(void *unused);

/**
 * Brings the chip up, then creates the service thread.
 * @return 0, or -1 when the thread cannot be created (logged)
 */
int vx_si5351_start2();

/**
 * Body of the service thread; names it "si5351_clk" and never returns.
 * @param unused  not used
 */
void *si5351_task(void *unused);
