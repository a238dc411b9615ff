/* What the service must make of its commands, calculated on its own: nothing here comes from the
 * engine. Rates and steps as published, positions in steps counted by hand. */
#pragma once

#include <cstdint>
#include <string>

struct MODEL_CHANNEL_T {
    int32_t rate = 48000, value = 253600, learned = 0, nominal = 253600, steps = 0, step = 1200;
    uint32_t status = 0x1234;
    int32_t fifo_size = 0, fifo_fill = 0;
    // What the chip's registers hold: integer part, numerator and divider code.
    int32_t chip_mult = 73, chip_num = 253600, chip_div = 1;
};

struct MODEL_T {
    MODEL_CHANNEL_T channels[3];
    int32_t steps[6] = {1400, 1200, 700, 600, 200, 160}; // by rate, ascending
    bool enabled = true;                                 // datagrams reach the chip
};

/* Applies the command of a datagram with its channel and arguments, whatever they are. */
void apply_command(MODEL_T *model, uint32_t cmd, int32_t ch, int32_t arg0, int32_t arg1);

/* The same typed into the console, which ignores the switch. */
void apply_typed(MODEL_T *model, uint32_t cmd, int32_t ch, int32_t arg0);

/* The text of the dump reply, of the status file, and of the console's dump file. */
std::string model_dump(const MODEL_T &model);
std::string model_status(const MODEL_T &model);
std::string model_text_dump(const MODEL_T &model);

/* The 24 registers from 42 on, as "FF FF 10". */
std::string model_registers(const MODEL_T &model);
