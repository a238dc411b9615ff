/* The text dump /tmp/si5351.txt: a readable snapshot of the records and the step table. */
#pragma once

/**
 * Rewrites the dump file, all of it from one instant. Takes the engine lock for the copy only.
 * @return 0; or -1 when the file cannot be opened or not be written whole (logged)
 */
int write_text_dump();
