/* The bus layer for benchmarks: a transfer costs one system call and always succeeds, so that what
 * is measured is the program and not a bus. */
#include <fcntl.h>
#include <unistd.h>

#include "bus/i2c_bus.h"

int i2c_bus_open(const char * /*path*/)
{
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

int i2c_bus_transfer(int fd, i2c_rdwr_ioctl_data *transfer)
{
    const i2c_msg &message = transfer->msgs[0];
    return write(fd, message.buf, message.len) == message.len ? 1 : -1;
}

void i2c_bus_close(int fd)
{
    (void)close(fd);
}
