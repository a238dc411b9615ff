/* Shared by the tests that call the engine: a fresh start for each case, and what it logged. */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/* Records, step table, ch_param, switch, bus and simulated chip as at start; the log taken so far
 * is gone. */
void reset_engine();

/* The lines logged since the last call, as "ERROR message"; the place " --[source:line]" is checked
 * and cut off. */
std::vector<std::string> take_log();

/* The register writes since recording began, as "42:FF", in bus order. */
std::vector<std::string> take_writes();

/* count registers of the simulated chip from first on, as "FF FF 10". */
std::string read_registers(int first, int count);
