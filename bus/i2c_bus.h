/* The layer over the I2C bus device: open, transfer and close, with the results of the system
 * calls. There are two versions; a program links one of them: Linux i2c-dev, or the simulated bus.
 */
#pragma once

// before i2c-dev.h, which uses its i2c_msg
#include <linux/i2c.h>

#include <linux/i2c-dev.h>

/**
 * Opens a bus device for reading and writing.
 * @param path  path of the device, for example /dev/i2c-1
 * @return its descriptor, or -1 with errno set
 */
int i2c_bus_open(const char *path);

/**
 * Submits one combined transfer (I2C_RDWR) and waits for its end.
 * @param fd        descriptor of the open device; the kernel refuses a bad one with EBADF
 * @param transfer  the messages; each carries the 7-bit address of its chip
 * @return number of messages sent, or -1 with errno set (no acknowledge: EREMOTEIO or ENXIO)
 */
int i2c_bus_transfer(int fd, i2c_rdwr_ioctl_data *transfer);

/**
 * Closes a bus device.
 * @param fd  descriptor from i2c_bus_open
 */
void i2c_bus_close(int fd);
