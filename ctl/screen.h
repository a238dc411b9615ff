/* The live view on a terminal. */
#pragma once

#include "ctl/live.h"

/** @return whether standard input and output are a terminal that can be drawn on; it is then in use
 *          until close_screen */
bool open_screen();

/** Gives the terminal back. */
void close_screen();

/** Draws the whole view, at the size that the terminal has now. */
void draw_screen(const LIVE_T &live);

/**
 * Waits for a key.
 * @param limit_ms  at most so long
 * @return false once q was pressed or the terminal is gone; true else, with the view drawn again
 *         after a change of size
 */
bool wait_for_key(const LIVE_T &live, int limit_ms);
