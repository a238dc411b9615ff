/* Shared by all tests: files, registers and the log as texts. */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using LINES = std::vector<std::string>;

/* A whole file; empty when there is none. */
std::string read_file(const std::string &path);

/* How often a text is in another. */
int count_text(const std::string &all, const std::string &text);

/* Registers as "FF FF 10". */
std::string to_hex(const void *bytes, size_t count);

/* From here on the log of this process is kept. */
void capture_log();

/* All that is kept of it as it stands, while other threads may still be writing. */
std::string read_log();

/* The lines logged since the last call as "ERROR message", those of one source: vx_si5351, main or
 * sim. The place behind each, " --[source:line]", is checked and cut off. */
LINES take_log(const std::string &source = "vx_si5351");
