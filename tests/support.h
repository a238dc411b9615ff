/* Shared by the tests that call the engine: a fresh start for each case, and what it wrote. */
#pragma once

#include <cstdint>

#include "tests/texts.h"

/* Records, step table, ch_param, switch, bus and simulated chip as at start; the log taken so far
 * is gone. */
void reset_engine();

/* The register writes since recording began, as "42:FF", in bus order. */
LINES take_writes();

/* count registers of the simulated chip from first on, as "FF FF 10". */
std::string read_registers(int first, int count);
