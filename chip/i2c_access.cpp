/* I2C access: the bus descriptor, the transactions and their error lines. */
#include "chip/i2c_access.h"

#include <cstdlib>
#include <cstring>

#include "bus/i2c_bus.h"
#include "log/log.h"

/* The message is one byte longer than the data, and its length is a 16-bit field. */
static constexpr int DATA_LIMIT = 65534;

int g_i2c_fd = -1;
std::atomic<uint32_t> g_failed_writes{0};

int I2C_Init(const char *path)
{
    if (path == nullptr) {
        LOG_ERROR("filepath is null");
        return -1;
    }
    const int fd = i2c_bus_open(path);
    if (fd < 0) {
        LOG_ERROR("Unable to open i2c control file:%s", path);
        return -1;
    }
    if (g_i2c_fd > 0) i2c_bus_close(g_i2c_fd);
    g_i2c_fd = fd;
    return 0;
}

static int send_message(uint16_t addr, uint8_t *bytes, uint16_t length)
{
    i2c_msg message = {};
    message.addr = addr & 0xFF;
    message.len = length;
    message.buf = bytes;
    i2c_rdwr_ioctl_data transfer = {};
    transfer.msgs = &message;
    transfer.nmsgs = 1;
    if (i2c_bus_transfer(g_i2c_fd, &transfer) >= 0) return 0;
    LOG_ERROR("Unable to send data");
    return -1;
}

static int write_registers(uint16_t addr, uint8_t reg, const uint8_t *data, int len)
{
    if (len < 0 || len > DATA_LIMIT || (data == nullptr && len > 0)) return -1;
    const size_t count = static_cast<size_t>(len);
    auto *bytes = static_cast<uint8_t *>(malloc(count + 1));
    if (bytes == nullptr) {
        LOG_ERROR("malloc failed");
        return -1;
    }
    bytes[0] = reg;
    if (count > 0) memcpy(bytes + 1, data, count);
    const int result = send_message(addr, bytes, static_cast<uint16_t>(count + 1));
    free(bytes);
    return result;
}

int I2C_Device_Write(const char *path, uint16_t addr, uint8_t reg, const uint8_t *data, int len)
{
    if (g_i2c_fd < 0) (void)I2C_Init(path); // when it stays closed, the write below fails
    if (write_registers(addr, reg, data, len) == 0) return 0;
    g_failed_writes++;
    LOG_ERROR("I2c_Write Failed at addr=[0x%2x]\n", addr);
    return -2;
}

int I2C_Deinit()
{
    if (g_i2c_fd > 0) i2c_bus_close(g_i2c_fd);
    g_i2c_fd = -1;
    return 0;
}

int i2cSendRegister(uint8_t reg, uint8_t value)
{
    (void)I2C_Device_Write(I2C_BUS_PATH, CHIP_ADDRESS, reg, &value, 1);
    return 0;
}
