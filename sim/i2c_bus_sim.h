/* The simulated bus: bus/i2c_bus.h over one Si5351A at address 0x60, and its switches for tests.
 *
 * Every other address goes unacknowledged (EREMOTEIO). Any path opens; the path is not looked at. A
 * write message [register, data...] sets registers upwards from the first, a one-byte write only
 * the register pointer; a read gives the registers from the pointer on. Both wrap from 255 to 0.
 *
 * The chip lies in a file, /tmp/si5351_sim.regs or what the environment variable
 * SI5351_SIM_REGISTERS names, mapped at the first use: SIM_FILE_T, the 256 registers and the
 * switches for faults. Like a chip that stays powered it keeps both when the process ends. Other
 * processes may look at it and throw the switches at any time. When the file cannot be used, an
 * ERROR line says why and the chip lies in memory only.
 *
 * One INFO line is logged for each output whose frequency a write changes. A parameter block of
 * eight registers counts for these lines when its last register is written or lost, all others at
 * once. The offset from a master clock is in the line when it is at most 1000 ppm.
 *
 * All functions are safe from any thread; one transfer is on the bus at a time. */
#pragma once

#include <cstdint>
#include <sys/types.h>
#include <vector>

#include "decode/output_clock.h"

/* One message of a transfer as it was submitted, whatever became of it. */
struct SIM_TRANSACTION_T {
    uint16_t addr;  // 7-bit address of the chip
    uint16_t flags; // I2C_M_RD for a read, 0 for a plain write
    uint16_t len;   // bytes in the message, the register number included
    uint8_t reg;    // first byte of a write; 0 in a read and without it
    uint8_t value;  // second byte of a write; 0 in a read and without it
    pid_t thread;   // kernel id of the thread that submitted it
    int result;     // 0 or the errno of the whole transfer
};

/* Faults of the bus, in 32-bit words of the machine's byte order; all zero is a healthy one. */
struct SIM_FAULTS_T {
    uint32_t absent;   // not 0: opening the device fails with ENOENT; open descriptors stay usable
    uint32_t silent;   // not 0: nobody acknowledges, transfers fail with EREMOTEIO
    uint32_t fail_in;  // this transfer from now, 1 the next, fails with EIO before its first byte;
                       // those on a descriptor that is not open do not count; 0 none
    uint32_t delay_us; // time each transfer holds the bus
    uint32_t fail_every = 0; // 3: every third transfer fails with EREMOTEIO; 0 none
};

/* The file. */
struct SIM_FILE_T {
    uint8_t registers[SI5351_REGISTER_COUNT];
    SIM_FAULTS_T faults;
};
static_assert(sizeof(SIM_FILE_T) == 276, "no gaps");

/** Power-on state: all registers 0, faults off, recording off, list empty. Logs no change. */
void sim_reset();

/** Lets go of the registers; the next use maps the file anew, as a restarted process would. */
void sim_restart();

/** @param wanted  the faults from the next call on, in place of all earlier ones */
void sim_set_faults(const SIM_FAULTS_T &wanted);

/** @param on  true: every submitted message goes to the list; false: the list stays as it is */
void sim_set_recording(bool on);

/** @return the recorded messages in bus order; the list is empty afterwards */
std::vector<SIM_TRANSACTION_T> sim_take_transactions();

/** @return the present value of a register, past the bus and its faults */
uint8_t sim_read_register(uint8_t reg);

/**
 * Decodes an output from the registers as they are now, half-written blocks included.
 * @param output  0 to 2
 * @return its frequency as decode_output_clock gives it
 */
SI5351_CLOCK_T sim_read_output(int output);
