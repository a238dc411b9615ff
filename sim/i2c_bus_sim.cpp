/* The bus layer without a bus: transfers end in the registers of a simulated Si5351A. */
#include "sim/i2c_bus_sim.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "bus/i2c_bus.h"
#include "log/log.h"

static constexpr uint16_t CHIP_ADDRESS = 0x60;
static constexpr double NEAR_PPM = 1000; // of a master clock: trims reach 402 ppm
static constexpr const char *DEFAULT_PATH = "/tmp/si5351_sim.regs";
static constexpr const char *PATH_VARIABLE = "SI5351_SIM_REGISTERS";

/* Guards everything below; held for the whole of a transfer, as the kernel holds its adapter. */
static std::mutex bus_mutex;

/* The chip and its switches: the mapped file or own_chip, null before the first use; the registers
 * in it; and where the next read or one-byte write left off. */
static SIM_FILE_T *chip;
static SIM_FILE_T own_chip;
static uint8_t *registers;
static uint8_t register_pointer;

static SI5351_CLOCK_T clocks[SI5351_OUTPUT_COUNT]; // as last logged
static uint32_t transfer_count; // since sim_reset or sim_set_faults, for fail_every
static bool recording;

/* Never destroyed: another thread may still be transferring while the process exits. */
static auto &transactions = *new std::vector<SIM_TRANSACTION_T>;

/* Null with errno set when the path cannot be mapped. */
static SIM_FILE_T *map_chip_file(const char *path)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return nullptr;

    // Lengthens a short file and never cuts one; a mapped page without its block would be SIGBUS.
    int failure = posix_fallocate(fd, 0, sizeof(SIM_FILE_T));
    void *memory = MAP_FAILED;
    if (failure == 0) {
        memory = mmap(nullptr, sizeof(SIM_FILE_T), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        failure = errno;
    }
    (void)close(fd); // the mapping stays
    errno = failure;
    return memory == MAP_FAILED ? nullptr : static_cast<SIM_FILE_T *>(memory);
}

static void note_clocks()
{
    for (int i = 0; i < SI5351_OUTPUT_COUNT; i++)
        clocks[i] = decode_output_clock(registers, i);
}

static void attach_chip()
{
    if (chip != nullptr) return;
    const char *chosen = getenv(PATH_VARIABLE);
    const char *path = chosen != nullptr ? chosen : DEFAULT_PATH;
    chip = map_chip_file(path);
    if (chip == nullptr) {
        LOG_ERROR("chip registers %s: %s (%d), kept in memory only", path, strerror(errno), errno);
        chip = &own_chip;
    }
    registers = chip->registers;
    note_clocks();
}

static void log_clock(int output)
{
    if (clocks[output].num == 0) {
        LOG_INFO("CLK%d is off", output);
        return;
    }
    const double hz = get_clock_hz(clocks[output]);
    int rate_hz = 0;
    const double ppm = get_offset_ppm(hz, &rate_hz);
    if (std::fabs(ppm) > NEAR_PPM) {
        LOG_INFO("CLK%d runs at %.2f Hz", output, hz);
        return;
    }
    LOG_INFO("CLK%d runs at %.2f Hz, %+.2f ppm from 128 x %d Hz", output, hz, ppm, rate_hz);
}

/* Within a parameter block only the last register is worth a line: the seven before it would log
 * frequencies that last a bus transaction each. */
static bool ends_setting(uint8_t reg)
{
    if (reg < SI5351_FIRST_BLOCK || reg >= SI5351_LAST_BLOCK + SI5351_BLOCK_SIZE) return true;
    return (reg - SI5351_FIRST_BLOCK) % SI5351_BLOCK_SIZE == SI5351_BLOCK_SIZE - 1;
}

static void log_changes()
{
    for (int i = 0; i < SI5351_OUTPUT_COUNT; i++) {
        const auto clock = decode_output_clock(registers, i);
        if (is_same_clock(clock, clocks[i])) continue;
        clocks[i] = clock;
        log_clock(i);
    }
}

static void write_register(uint8_t reg, uint8_t value)
{
    registers[reg] = value;
    if (ends_setting(reg)) log_changes();
}

/* The seven registers before it have arrived, and the output runs at what they make of it. */
static void note_lost(const i2c_msg &message)
{
    const bool writes = (message.flags & I2C_M_RD) == 0 && message.len > 1;
    if (writes && ends_setting(static_cast<uint8_t>(message.buf[0] + message.len - 2)))
        log_changes();
}

static void run_message(const i2c_msg &message)
{
    const bool reads = (message.flags & I2C_M_RD) != 0;
    for (int i = 0; i < message.len; i++) {
        if (reads) {
            message.buf[i] = registers[register_pointer++];
        } else if (i == 0) {
            register_pointer = message.buf[0];
        } else {
            write_register(register_pointer++, message.buf[i]);
        }
    }
}

/* 0, or the errno with which i2c-dev refuses messages before it sends the first. */
static int check_messages(const i2c_rdwr_ioctl_data *transfer)
{
    if (transfer == nullptr) return EFAULT;
    if (transfer->msgs == nullptr || transfer->nmsgs == 0) return EINVAL;
    for (uint32_t i = 0; i < transfer->nmsgs; i++) {
        const i2c_msg &message = transfer->msgs[i];
        if (message.len > 0 && message.buf == nullptr) return EFAULT;
    }
    return 0;
}

/* Another process may be throwing the switch right now. */
static uint32_t read_switch(const uint32_t *word)
{
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

/* 0, or the errno with which a fault ends the next transfer before its first byte. */
static int next_fault(SIM_FAULTS_T *faults)
{
    transfer_count++;
    const uint32_t fail_in = read_switch(&faults->fail_in);
    if (fail_in > 0) __atomic_store_n(&faults->fail_in, fail_in - 1, __ATOMIC_RELAXED);
    if (fail_in == 1) return EIO;
    const uint32_t every = read_switch(&faults->fail_every);
    const bool missed = every > 0 && transfer_count % every == 0;
    return missed || read_switch(&faults->silent) != 0 ? EREMOTEIO : 0;
}

/* 0 or an errno; messages ahead of one that is not acknowledged have reached the chip. */
static int run_transfer(int fd, const i2c_rdwr_ioctl_data &transfer)
{
    if (fcntl(fd, F_GETFD) < 0) return EBADF;
    const std::chrono::microseconds delay(read_switch(&chip->faults.delay_us));
    if (delay.count() > 0) std::this_thread::sleep_for(delay);
    const int fault = next_fault(&chip->faults);
    if (fault != 0) {
        note_lost(transfer.msgs[0]);
        return fault;
    }
    for (uint32_t i = 0; i < transfer.nmsgs; i++) {
        const i2c_msg &message = transfer.msgs[i];
        if (message.addr != CHIP_ADDRESS || (message.flags & I2C_M_TEN) != 0) return EREMOTEIO;
        run_message(message);
    }
    return 0;
}

static void record_messages(const i2c_rdwr_ioctl_data &transfer, int result)
{
    for (uint32_t i = 0; i < transfer.nmsgs; i++) {
        const i2c_msg &message = transfer.msgs[i];
        const int sent = (message.flags & I2C_M_RD) != 0 ? 0 : message.len;
        const uint8_t reg = sent > 0 ? message.buf[0] : uint8_t{0};
        const uint8_t value = sent > 1 ? message.buf[1] : uint8_t{0};
        transactions.push_back(
            {message.addr, message.flags, message.len, reg, value, gettid(), result});
    }
}

int i2c_bus_open(const char * /*path*/)
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    attach_chip();
    if (read_switch(&chip->faults.absent) != 0) {
        errno = ENOENT;
        return -1;
    }
    return memfd_create("simulated i2c bus", MFD_CLOEXEC); // a real descriptor, to be counted
}

int i2c_bus_transfer(int fd, i2c_rdwr_ioctl_data *transfer)
{
    int failure = check_messages(transfer);
    if (failure == 0) {
        const std::lock_guard<std::mutex> lock(bus_mutex);
        attach_chip();
        failure = run_transfer(fd, *transfer);
        if (recording) record_messages(*transfer, failure);
    }
    if (failure == 0) return static_cast<int>(transfer->nmsgs);
    errno = failure;
    return -1;
}

void i2c_bus_close(int fd)
{
    (void)close(fd); // nothing was buffered, nothing can be lost
}

void sim_reset()
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    attach_chip();
    *chip = {};
    note_clocks();
    register_pointer = 0;
    transfer_count = 0;
    recording = false;
    transactions.clear();
}

void sim_restart()
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    const bool mapped = chip != nullptr && chip != &own_chip;
    if (mapped) (void)munmap(chip, sizeof(SIM_FILE_T)); // an exact mapping: cannot fail
    own_chip = {};
    chip = nullptr;
    registers = nullptr;
}

void sim_set_faults(const SIM_FAULTS_T &wanted)
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    attach_chip();
    chip->faults = wanted;
    transfer_count = 0;
}

void sim_set_recording(bool on)
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    recording = on;
}

std::vector<SIM_TRANSACTION_T> sim_take_transactions()
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    std::vector<SIM_TRANSACTION_T> taken;
    taken.swap(transactions);
    return taken;
}

uint8_t sim_read_register(uint8_t reg)
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    attach_chip();
    return registers[reg];
}

SI5351_CLOCK_T sim_read_output(int output)
{
    const std::lock_guard<std::mutex> lock(bus_mutex);
    attach_chip();
    return decode_output_clock(registers, output);
}
