/* The records as text, and files made of a text. */
#pragma once

#include <cstddef>
#include <cstdio>

#include "trim/channels.h"

/* Room for the line of a record, as long as it can get. */
inline constexpr size_t RECORD_LINE_SIZE = 256;

/**
 * Formats the short line of a record, "ch:%d rate:%d value:%d status:%s\n".
 * @param line  room for RECORD_LINE_SIZE bytes; terminated
 * @return length of the line
 */
size_t format_record(char *line, const SI5351_CONF_T &record);

/**
 * Formats the long line of a record: all but its FIFO.
 * @param line  room for RECORD_LINE_SIZE bytes; terminated
 * @return length of the line
 */
size_t format_record_details(char *line, const SI5351_CONF_T &record);

/**
 * Writes a summary to a stream: the service thread's id, one line per record, an empty line;
 * 1 ms pause after each record. Takes the engine lock for the copy of each record.
 * @param stream  open for writing
 * @return the result of the last write: 1, or negative on failure; -1 for a null stream
 */
int vx_si5351_dump(FILE *stream);

/* What became of write_text_file. */
enum WRITE_E { WRITTEN, NOT_OPENED, NOT_WHOLE };

/**
 * Writes a text to a file; a symbolic link at the end of the path is refused.
 * @param path    the file; made readable and writable for all, as the umask allows
 * @param flag    O_TRUNC: an earlier file is emptied; O_EXCL: an earlier file is refused
 * @param text    its new content
 * @param length  bytes of text
 * @return WRITTEN; else, with errno set, NOT_OPENED (the file is as it was) or NOT_WHOLE
 */
WRITE_E write_text_file(const char *path, int flag, const char *text, size_t length);
