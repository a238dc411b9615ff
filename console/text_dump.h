/* The text dump /tmp/si5351.txt: a readable snapshot of the records and the step table. */
#pragma once

/**
 * Rewrites the dump file, all of it from one instant. Takes the engine lock for the copy only.
 * @return 0, also when the file could not be written whole (logged); -1 when it cannot be opened
 *         (logged)
 */
int write_text_dump();
