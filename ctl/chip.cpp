/* Reading and judging the chip. */
#include "ctl/chip.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "bus/i2c_bus.h"
#include "ctl/sockets.h"

static constexpr const char *BUS_PATH = "/dev/i2c-1";
static constexpr uint16_t CHIP_ADDRESS = 0x60;
static constexpr uint16_t REGISTERS_READ = 188; // 0 to 187, the last that is published
static constexpr int TRIES = 3;
static constexpr useconds_t PAUSE_US = 50000;

/* Register 0, and what a set bit means. */
static constexpr struct {
    const char *words;
    int bit;
    bool is_fault;
} status_bits[] = {
    {"the chip is still starting up (SYS_INIT)", 7, true},
    {"PLL B has no lock, and is not used (LOL_B)", 6, false},
    {"PLL A HAS LOST ITS LOCK (LOL_A)", 5, true},
    {"no clock at the input CLKIN, which is not used (LOS)", 4, false},
};

static constexpr int OUTPUT_DISABLE = 3;
static constexpr int CLK0_CONTROL = 16; // bit 7 powered down, bit 5 PLL B, bits 3 and 2 source
static constexpr int OWN_MULTISYNTH = 3;

/* A write of the register number and a read in one transfer, so that no write of the service falls
 * between two registers. */
static int read_bus(uint8_t *registers)
{
    const int fd = i2c_bus_open(BUS_PATH);
    if (fd < 0) return -1;
    uint8_t first = 0;
    i2c_msg messages[] = {{CHIP_ADDRESS, 0, 1, &first},
                          {CHIP_ADDRESS, I2C_M_RD, REGISTERS_READ, registers}};
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    const int sent = i2c_bus_transfer(fd, &transfer);
    const int failure = errno;
    i2c_bus_close(fd);
    errno = failure;
    return sent == 2 ? 0 : -1;
}

static std::string explain_bus_fault()
{
    const std::string text = std::string(BUS_PATH) + ": " + strerror(errno) + "; ";
    switch (errno) {
    case EREMOTEIO:
    case ENXIO:
        return text + "the chip does not answer at 0x60: look for its supply and the pull-ups";
    case EACCES:
        return text + "try again as root";
    case ENOENT:
        return text +
               "modprobe i2c-dev, or read a simulated chip: --registers /tmp/si5351_sim.regs";
    default:
        return text + "look at the kernel's log";
    }
}

static std::string read_image(const std::string &image, uint8_t *registers)
{
    const int fd =
        open(image.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); // a pipe must not hold us
    const ssize_t length = fd < 0 ? -1 : read(fd, registers, SI5351_REGISTER_COUNT);
    const int failure = errno;
    if (fd >= 0) (void)close(fd); // only read from
    if (length >= REGISTERS_READ) return "";
    return image + ": " +
           (length < 0 ? strerror(failure)
                       : "fewer than 188 registers; an image has one byte for each");
}

CHIP_T read_chip(const std::string &image)
{
    CHIP_T chip = {};
    if (!image.empty()) {
        chip.fault = read_image(image, chip.registers);
    } else if (read_bus(chip.registers) != 0) {
        chip.fault = explain_bus_fault();
    }
    return chip;
}

static double pll_hz(const CHIP_T &chip, int pll)
{
    return get_clock_hz(decode_pll_clock(chip.registers, pll));
}

static double output_hz(const CHIP_T &chip, int output)
{
    return get_clock_hz(decode_output_clock(chip.registers, output));
}

/* One more in a numerator is 13 parts in 10^9. */
static bool is_near(double left_hz, double right_hz)
{
    return std::fabs(left_hz - right_hz) <= right_hz * 1e-9;
}

/* A chip that had no supply has neither a PLL nor an output; one output alone was switched off. */
static bool has_settings(const CHIP_T &chip)
{
    bool has_output = false;
    for (int i = 0; i < CHANNEL_COUNT; i++)
        has_output = has_output || output_hz(chip, i) > 0;
    return has_output && is_near(pll_hz(chip, 0), PLL_A_HZ);
}

static bool is_as_listed(const CHIP_T &chip, const SNAPSHOT_T &snapshot, int i)
{
    return !snapshot.clocks[i].known || is_near(output_hz(chip, i), snapshot.clocks[i].hz);
}

static bool agrees(const CHIP_T &chip, const SNAPSHOT_T &snapshot)
{
    bool all = true;
    for (int i = 0; i < CHANNEL_COUNT; i++)
        all = all && is_as_listed(chip, snapshot, i);
    return all;
}

CHIP_T read_chip_and_service(const std::string &image, SNAPSHOT_T *snapshot)
{
    *snapshot = take_snapshot(ANSWER_WAIT_MS);
    CHIP_T chip = read_chip(image);
    for (int i = 1; i < TRIES && snapshot->answers && !agrees(chip, *snapshot); i++) {
        (void)usleep(PAUSE_US);
        *snapshot = take_snapshot(LIVE_WAIT_MS);
        chip = read_chip(image);
    }
    return chip;
}

static bool is_bit_set(const CHIP_T &chip, int reg, int bit)
{
    return (chip.registers[reg] >> bit & 1) != 0;
}

static void print_status_register(const CHIP_T &chip)
{
    const char *start = "status  ";
    for (const auto &row : status_bits) {
        if (!is_bit_set(chip, 0, row.bit)) continue;
        (void)printf("%s%s\n", start, row.words);
        start = "        ";
    }
    if (*start == 's') (void)printf("%sPLL A locked\n", start);
}

static void print_pll(const CHIP_T &chip, int pll)
{
    const double hz = pll_hz(chip, pll);
    (void)printf("PLL %c   ", 'A' + pll);
    if (hz > 0) {
        (void)printf("%.2f Hz = 27 MHz x %.6f\n", hz, hz / CRYSTAL_HZ);
    } else {
        (void)printf("not set up\n");
    }
}

/* From the PLL to a running output; nothing for an output that has another source. */
static std::string describe_dividers(const CHIP_T &chip, int output, double hz)
{
    const uint8_t control = chip.registers[CLK0_CONTROL + output];
    if ((control >> 2 & 0x3) != OWN_MULTISYNTH) return " from another source";
    const int pll = (control >> 5 & 1);
    const int r_divider = 1 << (chip.registers[output_blocks[output] + 2] >> 4 & 0x7);
    char text[64];
    (void)snprintf(text, sizeof(text), " = PLL %c / %.6f / %d", 'A' + pll,
                   pll_hz(chip, pll) / hz / r_divider, r_divider);
    return text;
}

static const char *why_off(const CHIP_T &chip, int output)
{
    if (is_bit_set(chip, CLK0_CONTROL + output, 7)) return "powered down";
    if (is_bit_set(chip, OUTPUT_DISABLE, output)) return "disabled";
    return "no clock: its divider or PLL is not set up";
}

static void print_output(const CHIP_T &chip, const SNAPSHOT_T &snapshot, int i)
{
    (void)printf("CLK%d    %-10s  ", i, path_names[i]);
    const double hz = output_hz(chip, i);
    if (hz > 0) {
        int rate_hz = 0;
        const double ppm = get_offset_ppm(hz, &rate_hz);
        (void)printf("%.2f Hz%s, %+.2f ppm off 128 x %d Hz", hz,
                     describe_dividers(chip, i, hz).c_str(), ppm, rate_hz);
    } else {
        (void)printf("%s", why_off(chip, i));
    }
    if (!is_as_listed(chip, snapshot, i))
        (void)printf("; THE SERVICE BELIEVES %.2f Hz", snapshot.clocks[i].hz);
    (void)printf("\n");
}

RESULT_E judge_chip(const CHIP_T &chip, const SNAPSHOT_T &snapshot)
{
    if (!chip.fault.empty()) return fail(NOT_SO, "%s", chip.fault.c_str());
    if (!has_settings(chip)) {
        return fail(NOT_SO, "the chip lost its settings; start the service again: "
                            "systemctl restart si5351_app");
    }
    for (const auto &row : status_bits) {
        if (row.is_fault && is_bit_set(chip, 0, row.bit))
            return fail(NOT_SO, "%s: look at the chip's supply and crystal", row.words);
    }
    if (!snapshot.answers) return fail_no_service();
    if (agrees(chip, snapshot)) return DONE;
    return fail(NOT_SO,
                "the chip is not as the service believes: a write failed, or another program "
                "wrote to it; set the rate of the channel again");
}

RESULT_E check_chip(const std::string &image)
{
    SNAPSHOT_T snapshot;
    const CHIP_T chip = read_chip_and_service(image, &snapshot);
    if (!chip.fault.empty()) return judge_chip(chip, snapshot);

    print_status_register(chip);
    print_pll(chip, 0);
    print_pll(chip, 1);
    for (int i = 0; i < CHANNEL_COUNT; i++)
        print_output(chip, snapshot, i);
    return judge_chip(chip, snapshot);
}
