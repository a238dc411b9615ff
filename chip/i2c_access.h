/* I2C access: all that goes to the clock chip goes through here. Writes only; nothing is read
 * back. */
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr const char *I2C_BUS_PATH = "/dev/i2c-1";
inline constexpr uint16_t CHIP_ADDRESS = 0x60; // 7-bit

/* Descriptor of the open bus device, -1 while closed. The engine lock guards it: the caller of
 * every function below holds that lock. */
extern int g_i2c_fd;

/* Writes that failed since the start of the process; read by any thread. */
extern std::atomic<uint32_t> g_failed_writes;

/**
 * Opens the bus device. A descriptor that was already open is closed after the new one is open.
 * @param path  the bus device
 * @return 0; or -1 for a null path or one that cannot be opened (logged): an open descriptor then
 *         stays in use
 */
int I2C_Init(const char *path);

/**
 * Writes consecutive registers in one transaction. Opens the bus device first when it is closed. A
 * failed write is not tried again, and leaves the descriptor as it is.
 * @param path  bus device, used only when it is not open yet
 * @param addr  chip address, 7 bits; the low 8 bits are sent
 * @param reg   first register
 * @param data  len bytes. May be null when len is 0: then only the register address is sent
 * @param len   0 to 65534
 * @return 0; or -2 when the transfer failed or could not be made (logged and counted)
 */
int I2C_Device_Write(const char *path, uint16_t addr, uint8_t reg, const uint8_t *data, int len);

/**
 * Closes the bus device.
 * @return 0
 */
int I2C_Deinit();

/**
 * Writes one chip register in a transaction of its own.
 * @param reg    register, by the chip's published number
 * @param value  its new content
 * @return 0, also when the write failed (logged)
 */
int i2cSendRegister(uint8_t reg, uint8_t value);
