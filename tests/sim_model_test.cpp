/* The simulated chip and bus, against frequencies worked by hand from register bytes. */
#include "sim/i2c_bus_sim.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "bus/i2c_bus.h"

using bytes = std::vector<uint8_t>;

static constexpr const char *REGISTER_FILE = "/tmp/sim_model_test.regs";

/* Register writes as text, "register=bytes ...": the register in decimal, the bytes in hexadecimal.
 * PLL A 33 + 1/3 (900 MHz), CLK0 and CLK1 36 + 159/256, CLK2 9, PLL B never set. */
static constexpr const char *BRING_UP =
    "3=00 15=00 16=0D0D0D 26=0003000EAA000002 "
    "42=010000104F000080 50=010000104F000080 58=0001000280000000";

/* After BRING_UP and these writes the output must run at num/den Hz in lowest terms; 0/1 is off. */
static const struct {
    const char *fault, *writes;
    int output;
    uint64_t num, den;
} decode_cases[] = {
    {"fraction misread", "", 0, 24576000, 1},
    {"block of another output taken", "", 2, 100000000, 1},
    {"high bits of P2 or P3 lost", "42=FFFF10229EFF501E", 0, 18874350000000, 3071983},
    {"high bits of P1 lost", "58=000103FE00000000", 2, 3515625, 8},
    {"P3 of 0x10000 taken for 0", "58=0000000280100000", 2, 100000000, 1},
    {"P3 of 0 divided by", "58=0000", 2, 0, 1},
    {"feedback P3 of 0 divided by", "26=0000", 2, 0, 1},
    {"divide-by-4 missed", "60=0C", 2, 225000000, 1},
    {"half of divide-by-4 taken", "60=08", 2, 100000000, 1},
    {"R divider bits lost", "60=70", 2, 781250, 1},
    {"R divider takes bit 7", "60=90", 2, 50000000, 1},
    {"power-down missed", "18=8D", 2, 0, 1},
    {"integer mode or inversion", "18=5D", 2, 100000000, 1},
    {"output disable missed", "3=04", 2, 0, 1},
    {"disable bits of others taken", "3=FB", 2, 100000000, 1},
    {"PLL A in place of unset PLL B", "18=2D", 2, 0, 1},
    {"PLL B misplaced", "18=2D 34=0001000A", 2, 72000000, 1},
    {"PLL B on a missing CLKIN", "18=2D 15=08 34=0001000A", 2, 0, 1},
    {"PLL A follows PLL B's source", "15=08", 2, 100000000, 1},
    {"output on a missing CLKIN", "18=05 187=D0", 2, 0, 1},
    {"crystal without fan-out", "18=01", 2, 0, 1},
    {"crystal as source missed", "18=01 187=40 60=10", 2, 13500000, 1},
    {"MS0 as source missed", "18=09 187=10", 2, 24576000, 1},
    {"reserved source of CLK0 taken", "16=09 187=10", 0, 0, 1},
    {"output 3 not checked", "187=40", 3, 0, 1},
    {"negative output not checked", "187=40", -1, 0, 1},
};

static std::ostringstream log_lines; // what the simulation logged since the last take_log
static int bus = -1;                 // the open bus device

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
    if (bus >= 0) return; // opened by an earlier case of this process
    bus = i2c_bus_open("/dev/i2c-1");
    ASSERT_GE(bus, 0);
    auto *layout = new log4cpp::PatternLayout(); // log4cpp owns layout and appender
    layout->setConversionPattern("%p %m%n");
    auto *appender = new log4cpp::OstreamAppender("test", &log_lines);
    appender->setLayout(layout);
    log4cpp::Category::getRoot().setAppender(appender);
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::INFO);
}

/* Without the "--[sim:line]" at the end of each line. */
static std::string take_log()
{
    std::string text;
    std::istringstream lines(log_lines.str());
    for (std::string line; std::getline(lines, line);)
        text += line.substr(0, line.find(" --[sim:")) + "\n";
    log_lines.str("");
    return text;
}

static int send(bytes data)
{
    i2c_msg message = {0x60, 0, static_cast<uint16_t>(data.size()), data.data()};
    i2c_rdwr_ioctl_data transfer = {&message, 1};
    return i2c_bus_transfer(bus, &transfer);
}

static void send_all(const std::string &writes)
{
    std::istringstream words(writes);
    for (std::string word; words >> word;) {
        bytes data = {static_cast<uint8_t>(std::stoi(word))};
        for (size_t i = word.find('=') + 1; i < word.size(); i += 2)
            data.push_back(static_cast<uint8_t>(std::stoi(word.substr(i, 2), nullptr, 16)));
        ASSERT_EQ(send(data), 1) << word;
    }
}

TEST(sim_model, DecodesRegistersExactly)
{
    for (const auto &row : decode_cases) {
        start_chip();
        send_all(BRING_UP);
        send_all(row.writes);
        const auto clock = sim_read_output(row.output);
        EXPECT_TRUE(is_same_clock(clock, {row.num, row.den}))
            << row.fault << ": " << get_clock_hz(clock);
    }
}

TEST(sim_model, LogsEachChangeOnce)
{
    start_chip();
    (void)take_log();
    send_all(BRING_UP);
    EXPECT_EQ(take_log(),
              "INFO CLK0 runs at 24576000.00 Hz, +0.00 ppm from 128 x 192000 Hz\n"
              "INFO CLK1 runs at 24576000.00 Hz, +0.00 ppm from 128 x 192000 Hz\n"
              "INFO CLK2 runs at 100000000.00 Hz, +3069010.42 ppm from 128 x 192000 Hz\n");
    const std::string block = "50=FF 51=FF 52=10 53=22 54=9E 55=FF 56=50 57=1E ";
    send_all(block + block); // the second time nothing changes
    EXPECT_EQ(take_log(), "INFO CLK1 runs at 6144028.14 Hz, +4.58 ppm from 128 x 48000 Hz\n");
    send_all("3=05");
    EXPECT_EQ(take_log(), "INFO CLK0 is off\nINFO CLK2 is off\n");
    send_all("26=0001000E80000000"); // PLL A 33 times the crystal, 891 MHz
    EXPECT_EQ(take_log(), "INFO CLK1 runs at 6082587.86 Hz, -9995.47 ppm from 128 x 48000 Hz\n");
    send_all("3=04");
    EXPECT_EQ(take_log(), "INFO CLK0 runs at 24330240.00 Hz, -10000.00 ppm from 128 x 192000 Hz\n");
    send_all("18=8D 26=0003000EAA000002 60=70 65=00"); // back to 900 MHz, for 900 MHz / 9 / 128
    (void)take_log();
    send_all("3=00 18=0D");
    EXPECT_EQ(take_log(), "INFO CLK2 runs at 781250.00 Hz, -861598.29 ppm from 128 x 44100 Hz\n");
}

TEST(sim_model, MovesTheRegisterPointer)
{
    start_chip();
    bytes data(301);
    for (size_t i = 0; i < data.size(); i++)
        data[i] = static_cast<uint8_t>(i % 251);
    data[0] = 200;
    ASSERT_EQ(send(data), 1);                     // 300 registers from 200 wrap past 255
    EXPECT_EQ(sim_read_register(199), 256 % 251); // data byte 256, the first round's end
    EXPECT_EQ(sim_read_register(200), 257 % 251); // written a second time
    EXPECT_EQ(sim_read_register(243), 300 % 251); // the last byte
    EXPECT_EQ(sim_read_register(244), 45);        // still of the first round

    uint8_t pointer = 243;
    uint8_t read[2] = {};
    i2c_msg messages[2] = {};
    messages[0] = {0x60, 0, 1, &pointer};
    messages[1] = {0x60, I2C_M_RD, 2, read};
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    EXPECT_EQ(i2c_bus_transfer(bus, &transfer), 2);
    EXPECT_EQ(read[0], 300 % 251);
    EXPECT_EQ(read[1], 45);
}

TEST(sim_model, RefusesHostileTransfers)
{
    start_chip();
    uint8_t data[] = {3, 0xFF};
    i2c_msg to_chip = {0x60, 0, 2, data};
    i2c_msg elsewhere = {0x61, 0, 2, data};
    i2c_msg ten_bit = {0x60, I2C_M_TEN, 2, data};
    i2c_msg empty = {0x60, 0, 0, nullptr};
    i2c_msg no_buffer = {0x60, 0, 2, nullptr};
    const struct {
        const char *fault;
        int fd;
        i2c_rdwr_ioctl_data transfer;
        int result, failure;
    } cases[] = {
        {"other address answers", bus, {&elsewhere, 1}, -1, EREMOTEIO},
        {"ten-bit address answers", bus, {&ten_bit, 1}, -1, EREMOTEIO},
        {"no messages", bus, {&to_chip, 0}, -1, EINVAL},
        {"null messages", bus, {nullptr, 1}, -1, EINVAL},
        {"null buffer read", bus, {&no_buffer, 1}, -1, EFAULT},
        {"descriptor -1 taken", -1, {&to_chip, 1}, -1, EBADF},
        {"descriptor not open taken", 900, {&to_chip, 1}, -1, EBADF},
        {"empty message read or refused", bus, {&empty, 1}, 1, 0},
    };
    for (auto row : cases) {
        errno = 0;
        EXPECT_EQ(i2c_bus_transfer(row.fd, &row.transfer), row.result) << row.fault;
        EXPECT_EQ(errno, row.failure) << row.fault;
        EXPECT_EQ(sim_read_register(3), 0) << row.fault;
    }
    EXPECT_EQ(i2c_bus_transfer(bus, nullptr), -1);
}

TEST(sim_model, FaultsAndRecording)
{
    start_chip();
    EXPECT_EQ(send({100, 1}), 1); // before recording: not in the list
    sim_set_recording(true);
    sim_set_faults({0, 0, 2, 0});
    for (const int result : {1, -1, 1})
        EXPECT_EQ(send({100, 2}), result);
    sim_set_faults({0, 1, 0, 0});
    EXPECT_EQ(send({100, 3}), -1);
    EXPECT_EQ(sim_read_register(100), 2);
    sim_set_faults({1, 0, 0, 0});
    EXPECT_EQ(i2c_bus_open("/dev/i2c-1"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(send({101}), 1);
    sim_set_recording(false);
    sim_set_faults({0, 0, 0, 0, 3});
    for (const int result : {1, 1, -1, 1, 1, -1})
        EXPECT_EQ(send({101, 4}), result);
    sim_set_faults({});
    EXPECT_EQ(send({100, 4}), 1);

    const int results[] = {0, EIO, 0, EREMOTEIO, 0};
    const auto list = sim_take_transactions();
    ASSERT_EQ(list.size(), std::size(results));
    for (size_t i = 0; i < list.size(); i++)
        EXPECT_EQ(list[i].result, results[i]) << i;
    const auto &refused = list[3];
    EXPECT_EQ(refused.addr, 0x60);
    EXPECT_EQ(refused.reg, 100);
    EXPECT_EQ(refused.value, 3);
    EXPECT_EQ(list[4].len, 1);
    EXPECT_TRUE(sim_take_transactions().empty());

    sim_set_faults({1, 1, 1, 0});
    sim_reset();
    EXPECT_EQ(send({100, 5}), 1) << "fault left over";
}

TEST(sim_model, OneTransferOnTheBusAtATime)
{
    start_chip();
    static constexpr int TRANSFERS = 10;
    sim_set_faults({0, 0, 0, 2000});
    sim_set_recording(true);
    const auto start = std::chrono::steady_clock::now();
    const auto write_register = [](uint8_t reg) {
        for (uint8_t i = 0; i < TRANSFERS; i++)
            EXPECT_EQ(send({reg, i}), 1);
    };
    std::thread other(write_register, 59);
    write_register(51);
    other.join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));

    const auto list = sim_take_transactions();
    EXPECT_EQ(list.size(), 2 * TRANSFERS);
    for (const auto &row : list)
        EXPECT_EQ(row.thread == getpid(), row.reg == 51);
}

TEST(sim_model, KeepsItsRegistersInTheFile)
{
    start_chip();
    send_all(BRING_UP);
    sim_restart();
    EXPECT_TRUE(is_same_clock(sim_read_output(2), {100000000, 1})) << "emptied at the start";
    EXPECT_EQ(truncate(REGISTER_FILE, 20), 0);
    attach(REGISTER_FILE);
    EXPECT_EQ(sim_read_register(16), 0x0D) << "short file emptied";
    EXPECT_EQ(sim_read_register(255), 0);
    struct stat file = {};
    EXPECT_EQ(stat(REGISTER_FILE, &file), 0);
    EXPECT_EQ(file.st_size, sizeof(SIM_FILE_T));
}

TEST(sim_model, RunsWithoutTheFile)
{
    start_chip();
    const std::string link = std::string(REGISTER_FILE) + ".link";
    (void)symlink(REGISTER_FILE, link.c_str()); // may be left from a failed run
    send_all("3=AA");
    for (const std::string &path : {link, std::string("/tmp"), std::string("/tmp/missing/file"),
                                    std::string("/dev/null"), std::string()}) {
        (void)take_log();
        attach(path);
        EXPECT_EQ(sim_read_register(3), 0) << path; // a followed link would show 0xAA
        EXPECT_EQ(send({3, 0x55}), 1) << path;
        EXPECT_EQ(sim_read_register(3), 0x55) << path;
        const std::string start = "ERROR chip registers " + path + ": ";
        EXPECT_EQ(take_log().compare(0, start.size(), start), 0) << path;
    }
    EXPECT_EQ(unlink(link.c_str()), 0);
}
