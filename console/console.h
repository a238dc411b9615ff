/* The debug console: short commands that a person writes into a named pipe. */
#pragma once

/* While a service runs, its console reads this pipe. */
inline constexpr const char *PIPE_PATH = "/tmp/si5351";

/**
 * Acts on one text as the table of commands says; a text that begins with no keyword is dropped.
 * Takes the engine lock.
 * @param text  terminated, or null, which does nothing; only the command at its beginning counts
 */
void run_console_command(const char *text);

/**
 * Makes the pipe /tmp/si5351 anew and acts on what is written into it, until that fails.
 * @return -1 the pipe cannot be created; 0 it cannot be opened or read (all logged)
 */
int handle_cmd();

/**
 * Body of the console thread: names it "debug_task", logs its id and reads commands forever. After
 * a failure (logged) it makes the pipe anew, 1 s later.
 * @param unused  not used
 */
void *debug_task(void *unused);
