/* The debug console: commands typed by a person into a named pipe. */
#pragma once

/**
 * Body of the console thread; names it "debug_task" and never returns.
 * @param unused  not used
 */
void *debug_task(void *unused);
