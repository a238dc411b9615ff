/* What a supervisor is told of the service, as systemd's sd_notify(3) describes it. */
#pragma once

/**
 * Tells the supervisor how the service is, when the environment variable NOTIFY_SOCKET names its
 * socket. First it tells that the service waits for its port. Later, from the service thread:
 * READY=1 when the port is bound, STATUS= when the number of failed register writes or the fault of
 * the status file has changed, and WATCHDOG=1 four times in WATCHDOG_USEC. At most one message a
 * second; one that cannot be delivered is sent again. Nothing of it is logged.
 *
 * A pass of the service loop takes up to 2 s when idle, and longer on a bus that times out: a
 * watchdog of less than 30 s is too short. An abstract socket name ("@...") is not used.
 *
 * Call it between bring-up and the start of the service thread: the register writes that have
 * failed by then count as failed at the start.
 */
void report_to_supervisor();
