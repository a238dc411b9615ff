/* The subcommand chip: what is in the chip's registers, and whether it is what the service put
 * there. Nothing here writes a register. */
#pragma once

#include <string>

#include "ctl/result.h"
#include "ctl/snapshot.h"
#include "decode/output_clock.h"

struct CHIP_T {
    std::string fault; // why it could not be read; empty when it could
    uint8_t registers[SI5351_REGISTER_COUNT];
};

/**
 * Reads the chip's registers in one transfer.
 * @param image  a file with the registers in place of the bus; empty for /dev/i2c-1
 */
CHIP_T read_chip(const std::string &image);

/**
 * Reads chip and listing, once more when they differ, as a command may have come in between.
 * @param image     as for read_chip
 * @param snapshot  set to what the service shows
 */
CHIP_T read_chip_and_service(const std::string &image, SNAPSHOT_T *snapshot);

/**
 * Tells what is wrong with the chip, or why it cannot be compared with the listing.
 * @return DONE as it should be; NOT_SO else, or not readable; NO_SERVICE nothing to compare with
 */
RESULT_E judge_chip(const CHIP_T &chip, const SNAPSHOT_T &snapshot);

/**
 * Prints what the registers make of PLLs and outputs, and what is wrong with it.
 * @param image  as for read_chip
 * @return as judge_chip
 */
RESULT_E check_chip(const std::string &image);
