/* The register table that bring-up writes first. */
#pragma once

#include <cstdint>

/* One register write. */
struct REGISTER_ROW_T {
    uint32_t reg; // its low 8 bits are sent
    uint8_t value;
};

/* The register table in use; null before bring-up, which sets it. */
extern const REGISTER_ROW_T *si5351_reg_map_ptr;

/**
 * Writes the 71 registers of the table, each in a transaction of its own. A register that fails is
 * logged by the bus access, and the next one is still written. The caller holds the engine lock.
 */
void write_register_table();
