/* One service on a machine: two would both drive the chip. */
#pragma once

/**
 * Looks for another instance: one of the same user has the console's pipe open for reading. Nothing
 * is written into the pipe. Somebody else's pipe does not count: otherwise any user could keep
 * the service from starting.
 * @return whether there is one
 */
bool is_other_running();
