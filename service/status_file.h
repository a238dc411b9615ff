/* The status file /tmp/genlock.json: FIFO levels and trim of the three channels, for other
 * programs. */
#pragma once

/* Why the last text is not in the status file. */
struct STATUS_FAULT_T {
    const char *path; // the file at fault; null: the text is there
    int error;        // errno
};

/* Written by dump2json; for the thread that calls it. */
extern STATUS_FAULT_T g_status_fault;

/**
 * Rewrites the status file from the records, at once: a reader finds the old text or the new
 * one, whole. A text that could not be written whole never replaces the file. Takes the engine lock
 * for the copy of the records only.
 * @return 0 when the text was built, whether or not it could be written (g_status_fault tells; not
 *         logged: reports come many times a second); -1 without memory for it
 */
int dump2json();
