/* The sockets at both ends: the tool's own, and the service's as the kernel shows it. */
#pragma once

#include "ctl/result.h"

/* Time limits for the service, in milliseconds: it takes 40 when nobody else asks for a listing. */
inline constexpr int ANSWER_WAIT_MS = 1000;
inline constexpr int LIVE_WAIT_MS = 400;

/** @return the socket for the client calls, opened at its first use and kept; -1 told */
int client_socket();

/**
 * @return the inode of the socket that is bound to the command port, 0 for none; a service that was
 *         started anew has another one
 */
unsigned long find_service_socket();

/**
 * Says that no service answers, or that something else has its port.
 * @return NO_SERVICE
 */
RESULT_E fail_no_service();
