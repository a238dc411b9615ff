/* The simulated chip and bus, against frequencies worked by hand from register bytes. */
#include "sim/i2c_bus_sim.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "bus/i2c_bus.h"
#include "tests/texts.h"

static const std::string REGISTER_FILE = "/tmp/sim_model_test.regs";

/* Register writes as text, "register=bytes ...": the register in decimal, the bytes in hexadecimal.
 * PLL A 33 + 1/3 (900 MHz), CLK0 and CLK1 36 + 159/256, CLK2 9, PLL B never set. */
static const std::string BRING_UP = "3=00 15=00 16=0D0D0D 26=0003000EAA000002 "
                                    "42=010000104F000080 50=010000104F000080 58=0001000280000000";

static int bus = -1; // the open bus device

static void attach(const std::string &path)
{
    ASSERT_EQ(setenv("SI5351_SIM_REGISTERS", path.c_str(), 1), 0);
    sim_restart();
}

/* A fresh chip on an open bus. */
static void start_chip()
{
    attach(REGISTER_FILE);
    sim_reset();
    capture_log();
    take_log();
    if (bus < 0) bus = i2c_bus_open("/dev/i2c-1");
    ASSERT_GE(bus, 0);
}

/* Writes each word in a transfer of its own; returns the last result. */
static int send(const std::string &writes)
{
    int result = 0;
    std::istringstream words(writes);
    for (std::string word; words >> word;) {
        std::vector<uint8_t> data = {static_cast<uint8_t>(std::stoi(word))};
        for (size_t i = word.find('=') + 1; i < word.size(); i += 2)
            data.push_back(static_cast<uint8_t>(std::stoi(word.substr(i, 2), nullptr, 16)));
        i2c_msg message = {0x60, 0, static_cast<uint16_t>(data.size()), data.data()};
        i2c_rdwr_ioctl_data transfer = {&message, 1};
        result = i2c_bus_transfer(bus, &transfer);
    }
    return result;
}

// clang-format off
/* After BRING_UP and these writes the output must run at num/den Hz in lowest terms; 0/1 is off. */
static const struct { const char *fault, *writes; int output; uint64_t num, den; } decodings[] = {
    {"fraction misread",              "",                          0, 24576000, 1},
    {"high bits of P2 or P3 lost",    "42=FFFF10229EFF501E",       0, 18874350000000, 3071983},
    {"high bits of P1 lost",          "58=000103FE00000000",       2, 3515625, 8},
    {"P3 of 0x10000 taken for 0",     "58=0000000280100000",       2, 100000000, 1},
    {"P3 of 0 divided by",            "58=0000",                   2, 0, 1},
    {"feedback P3 of 0 divided by",   "26=0000",                   2, 0, 1},
    {"divide-by-4 missed",            "60=0C",                     2, 225000000, 1},
    {"R divider misread, or bit 7",   "60=F0",                     2, 781250, 1},
    {"power-down missed",             "18=8D",                     2, 0, 1},
    {"output disable missed",         "3=04",                      2, 0, 1},
    {"PLL A in place of unset PLL B", "18=2D",                     2, 0, 1},
    {"PLL B misplaced",               "18=2D 34=0001000A",         2, 72000000, 1},
    {"PLL B on a missing CLKIN",      "18=2D 15=08 34=0001000A",   2, 0, 1},
    {"output on a missing CLKIN",     "18=05 187=D0",              2, 0, 1},
    {"crystal as source missed",      "18=01 187=40 60=10",        2, 13500000, 1},
    {"MS0 as source missed",          "18=09 187=10",              2, 24576000, 1},
    {"output 3 not checked",          "187=40",                    3, 0, 1},
};
// clang-format on

TEST(sim_model, DecodesRegistersExactly)
{
    for (const auto &row : decodings) {
        start_chip();
        send(BRING_UP);
        send(row.writes);
        const auto clock = sim_read_output(row.output);
        EXPECT_TRUE(is_same_clock(clock, {row.num, row.den}))
            << row.fault << ": " << get_clock_hz(clock);
    }
}

TEST(sim_model, LogsEachChangeOnce)
{
    start_chip();
    send(BRING_UP);
    for (int i = 0; i < 2; i++) // the second time nothing changes
        send("50=FF 51=FF 52=10 53=22 54=9E 55=FF 56=50 57=1E 3=05");
    send("26=0001000E80000000");  // PLL A 33 times the crystal, 891 MHz
    sim_set_faults({0, 0, 2, 0}); // the second write is lost, the last of its block
    send("54=9D 57=1E");
    const LINES expected = {"INFO CLK0 runs at 24576000.00 Hz, +0.00 ppm from 128 x 192000 Hz",
                            "INFO CLK1 runs at 24576000.00 Hz, +0.00 ppm from 128 x 192000 Hz",
                            "INFO CLK2 runs at 100000000.00 Hz",
                            "INFO CLK1 runs at 6144028.14 Hz, +4.58 ppm from 128 x 48000 Hz",
                            "INFO CLK0 is off",
                            "INFO CLK2 is off",
                            "INFO CLK1 runs at 6082587.86 Hz",
                            "INFO CLK1 runs at 6083236.74 Hz"};
    EXPECT_EQ(take_log("sim"), expected);
}

TEST(sim_model, RefusesWhatTheKernelRefuses)
{
    start_chip();
    uint8_t data[] = {3, 0xFF};
    // clang-format off
    const struct { const char *fault; int fd; i2c_msg message; uint32_t count; int error; } all[] = {
        {"other address answers",         bus, {0x61, 0, 2, data},         1, EREMOTEIO},
        {"ten-bit address answers",       bus, {0x60, I2C_M_TEN, 2, data}, 1, EREMOTEIO},
        {"no messages",                   bus, {0x60, 0, 2, data},         0, EINVAL},
        {"null buffer read",              bus, {0x60, 0, 2, nullptr},      1, EFAULT},
        {"descriptor not open taken",     900, {0x60, 0, 2, data},         1, EBADF},
        {"empty message read or refused", bus, {0x60, 0, 0, nullptr},      1, 0},
    };
    // clang-format on
    for (auto row : all) {
        errno = 0;
        i2c_rdwr_ioctl_data transfer = {&row.message, row.count};
        EXPECT_EQ(i2c_bus_transfer(row.fd, &transfer), row.error == 0 ? 1 : -1) << row.fault;
        EXPECT_EQ(errno, row.error) << row.fault;
        EXPECT_EQ(sim_read_register(3), 0) << row.fault;
    }
    EXPECT_EQ(i2c_bus_transfer(bus, nullptr), -1);
    sim_set_faults({0, 1, 0, 0});
    EXPECT_EQ(send("3=FF"), -1);
    EXPECT_EQ(errno, EREMOTEIO) << "silent";
}

/* The usual read is a transfer of two messages: the register number, then the bytes. */
TEST(sim_model, WrapsAndRecordsBothMessagesOfARead)
{
    start_chip();
    std::string bytes;
    for (int i = 0; i < 300; i++) // 300 registers from 200 wrap past 255 and end at 243
        bytes += i < 256 ? "11" : "22";
    send("200=" + bytes);
    EXPECT_EQ(sim_read_register(199), 0x11);
    EXPECT_EQ(sim_read_register(200), 0x22);

    uint8_t reg = 242;
    uint8_t data[3] = {};
    i2c_msg messages[] = {{0x60, 0, 1, &reg}, {0x60, I2C_M_RD, 3, data}};
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    sim_set_recording(true);
    EXPECT_EQ(i2c_bus_transfer(bus, &transfer), 2);
    EXPECT_EQ(to_hex(data, 3), "22 22 11") << "the last two bytes, and one of the first round";
    const auto list = sim_take_transactions();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].reg, 242);
    EXPECT_EQ(list[1].flags, I2C_M_RD);
    EXPECT_EQ(list[1].reg, 0) << "a read has no register number";
    messages[1].addr = 0x61;
    EXPECT_EQ(i2c_bus_transfer(bus, &transfer), -1) << "the second message is not looked at";
}

TEST(sim_model, AResetEndsRecordingAndEmptiesTheList)
{
    start_chip();
    sim_set_recording(true);
    send("3=FF");
    sim_reset();
    EXPECT_EQ(sim_take_transactions().size(), 0U) << "kept";
    send("3=FF");
    EXPECT_EQ(sim_take_transactions().size(), 0U) << "still recording";
}

TEST(sim_model, KeepsItsRegistersInTheFileOrInMemory)
{
    (void)unlink(REGISTER_FILE.c_str());
    umask(0);
    start_chip();
    struct stat status = {};
    EXPECT_EQ(stat(REGISTER_FILE.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0644);
    send("3=AA");
    EXPECT_EQ(truncate(REGISTER_FILE.c_str(), 20), 0);
    attach(REGISTER_FILE);
    EXPECT_EQ(sim_read_register(3), 0xAA) << "emptied at the start";
    EXPECT_EQ(sim_read_register(255), 0) << "short file not lengthened";
    const std::string link = REGISTER_FILE + ".link";
    (void)symlink(REGISTER_FILE.c_str(), link.c_str()); // may be left from a failed run
    const char *const faults[][2] = {{link.c_str(), "Too many levels of symbolic links (40)"},
                                     {"/tmp", "Is a directory (21)"},
                                     {"/dev/null", "No such device (19)"}};
    for (const auto &[path, reason] : faults) {
        take_log();
        attach(path);
        EXPECT_EQ(sim_read_register(3), 0) << path; // a followed link would show 0xAA
        EXPECT_EQ(send("3=55"), 1) << path;
        EXPECT_EQ(sim_read_register(3), 0x55) << path;
        EXPECT_EQ(take_log("sim").front(), "ERROR chip registers " + std::string(path) + ": " +
                                               reason + ", kept in memory only");
    }
    EXPECT_EQ(unlink(link.c_str()), 0);
}
