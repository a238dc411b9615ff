/* The chip driver: transactions, divider blocks and bring-up, on a bus that works or fails. */
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>

#include "chip/i2c_access.h"
#include "chip/multisynth.h"
#include "chip/whole_frequency.h"
#include "entry/start_up.h"
#include "sim/i2c_bus_sim.h"
#include "tests/support.h"
#include "trim/bring_up.h"
#include "trim/channels.h"
#include "trim/trim.h"

static constexpr SIM_FAULTS_T ABSENT = {1, 0, 0, 0};
static constexpr SIM_FAULTS_T SILENT = {0, 1, 0, 0};

static const std::string no_bus = "ERROR Unable to open i2c control file:/dev/i2c-1";
static const std::string no_transfer = "ERROR Unable to send data";
static const std::string no_write = "ERROR I2c_Write Failed at addr=[0x60]\n";

/* Every divider block is worked by hand from P1 = 128 a + f - 512, P2 = 128 b - c f, P3 = c. */
TEST(Dividers, RatiosBecomeTheEightRegisters)
{
    static const struct {
        const char *fault;
        void (*write)();
        int first;
        const char *bytes;
    } cases[] = {
        {"bytes out of order", [] { setupPLL(26, 33, 1, 3); }, 26, "00 03 00 0E AA 00 00 02"},
        {"the older entry differs", [] { setupReg(26, 33, 1, 3); }, 26, "00 03 00 0E AA 00 00 02"},
        {"divider code lost", [] { Multisynth(42, 73, 253600, 1048575, 1); }, 42,
         "FF FF 10 22 9E FF 50 1E"},
        {"integer part cut", [] { Multisynth(50, 255, 0, 1, 0); }, 50, "00 01 00 7D 80 00 00 00"},
        {"no whole ratio", [] { Multisynth(50, 36, 0, 1, 0); }, 50, "00 01 00 10 00 00 00 00"},
        {"fraction in double precision", [] { Multisynth(58, 36, 1023999, 1048575, 0); }, 58,
         "FF FF 00 10 7D FF FF FD"},
        // 2^20 + 1: f 0, P1 4096, P2 128, P3 1048577 of which 1 is left
        {"wide denominator cut too early", [] { Multisynth(58, 36, 1, 1048577, 0); }, 58,
         "00 01 00 10 00 00 00 80"},
        {"P1 below 0 not wrapped", [] { Multisynth(58, 0, 0, 1, 7); }, 58,
         "00 01 73 FE 00 00 00 00"},
        {"divider code masked", [] { Multisynth(58, 36, 0, 1, 8); }, 58, "00 01 80 10 00 00 00 00"},
        // f 2^39, of which 32 bits leave 0; P1 8832, P2 128 x (2^32 - 1)
        {"quotient beyond 32 bits", [] { Multisynth(42, 73, UINT32_MAX, 1, 1); }, 42,
         "00 01 10 22 80 0F FF 80"},
        {"integer block", [] { setupMultisynth(50, 36, 0); }, 50, "00 01 00 10 00 00 00 00"},
        {"P1 bit 16 lost", [] { setupMultisynth(50, 1000, 0); }, 50, "00 01 01 F2 00 00 00 00"},
        {"P1 bit 17 lost", [] { setupMultisynth(50, 1028, 0); }, 50, "00 01 02 00 00 00 00 00"},
        {"code shifted", [] { setupMultisynth(50, 2047, 0x20); }, 50, "00 01 23 FD 80 00 00 00"},
    };
    for (const auto &c : cases) {
        reset_engine();
        c.write();
        EXPECT_EQ(read_registers(c.first, 8), c.bytes) << c.fault;
        EXPECT_EQ(take_writes().size(), 8U) << c.fault;
    }
}

TEST(WholeFrequency, MovesThePllAndSetsAnEvenDivider)
{
    static const struct {
        void (*call)();
        LINES log;
        size_t writes;
    } cases[] = {
        {[] { setupPLL(26, 33, 1, 0); }, {"ERROR invalid denom:0 for registers from 26"}, 0},
        {[] { Multisynth(42, 73, 1, 0, 1); }, {"ERROR invalid denom:0 for registers from 42"}, 0},
        {[] { si5351aSetFrequency(1, 24576000); }, {"INFO set param ch:1 freq:24576000"}, 16},
        {[] { si5351aSetFrequency(4, 24576000); }, {"INFO set param ch:4 freq:24576000"}, 8},
        {[] { si5351aSetFrequency(2, 0); },
         {"INFO set param ch:2 freq:0", "ERROR invalid freq:0 for ch:2"},
         0},
        {[] { vx_si5351_param_inc_dec(4, 0, 0); }, {"ERROR invalid ch:4"}, 0},
        {[] { vx_si5351_param_inc_dec(3, 0, 0); }, {"INFO set param ch:3 freq:507200"}, 16},
    };
    reset_engine();
    for (const auto &c : cases) {
        c.call();
        EXPECT_EQ(take_log(), c.log);
        EXPECT_EQ(take_writes().size(), c.writes) << c.log.front();
    }
    si5351aSetFrequency(1, 24576000);
    EXPECT_EQ(read_registers(26, 8), "FF FF 00 0E 62 F4 DC E2");
    EXPECT_EQ(read_registers(42, 8), "00 01 00 10 00 00 00 00");
    for (const uint32_t hz : {1U, 450000001U, 900000000U, UINT32_MAX})
        si5351aSetFrequency(1, hz); // no chip can, but none is undefined
}

/* What bring-up writes, as first register = bytes; channel 2 is at 44100 Hz. */
static constexpr const char *bring_up =
    "3=FF 16=8080808080808080 2=FF 4=20 7=0F 15=00 16=0D0D0D 19=8C8C8C8C8C 26=0003000EAA000002 "
    "42=010000104F000080 50=010000104F000080 58=0001000280000000 90=0000 149=00000000000000 "
    "162=000000 165=000000 183=92 177=AC 3=00 26=0003000EAA000002 42=FFFF10229EFF501E "
    "50=FFFF1025DCF0445C 58=FFFF10229EFF501E";

static LINES expand_runs(const std::string &runs)
{
    LINES writes;
    std::istringstream words(runs);
    for (std::string word; words >> word;) {
        int reg = std::stoi(word);
        for (size_t at = word.find('=') + 1; at < word.size(); at += 2)
            writes.push_back(std::to_string(reg++) + ":" + word.substr(at, 2));
    }
    return writes;
}

TEST(BringUp, WritesTheTableThePllAndTheRecords)
{
    reset_engine();
    stSi5351Conf[1].mult = 79;
    stSi5351Conf[1].num = 753800;
    EXPECT_EQ(vx_si5351_init(), 1);
    EXPECT_EQ(take_log(), LINES{});
    EXPECT_EQ(take_writes(), expand_runs(bring_up));
    sim_set_faults({0, 0, 72, 0}); // the first register of the PLL
    EXPECT_EQ(vx_si5351_start(), 0);
    EXPECT_EQ(take_log(), (LINES{no_transfer, no_write}));
    EXPECT_EQ(take_writes(), expand_runs(bring_up));
}

/* decode/ has a list of its own, as it has nothing from chip/. */
TEST(Rates, TheDecoderKnowsEveryRate)
{
    for (const RATE_ROW_T &row : rate_rows) {
        int nearest_hz = 0;
        EXPECT_EQ(get_offset_ppm(128.0 * row.rate_hz, &nearest_hz), 0);
        EXPECT_EQ(nearest_hz, row.rate_hz);
    }
}

/* Stands before the C library's function of the same name. */
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int pthread_create(pthread_t * /*thread*/, const pthread_attr_t * /*attributes*/,
                              void *(* /*body*/)(void *), void * /*argument*/)
{
    return EAGAIN;
}

TEST(BringUp, AttemptsEveryWriteOnADeadBusAndGoesOnWithoutThreads)
{
    reset_engine();
    sim_set_faults(SILENT);
    EXPECT_EQ(si5351_debug_task(nullptr), 0);
    EXPECT_EQ(take_log("main"), LINES{"ERROR create debug_task err"});
    EXPECT_EQ(vx_si5351_start2(), -1);
    EXPECT_EQ(count_text(read_log(), no_transfer + " --[vx"), 103);
    EXPECT_EQ(count_text(read_log(), no_write + " --[vx"), 103);
    EXPECT_EQ(take_log("main"), (LINES{"INFO  audio vx_si5351_start2 startup",
                                       "ERROR  audio si5351_task thread create fail"}));
}

TEST(I2cAccess, OpensLazilyAndKeepsTheDescriptor)
{
    reset_engine();
    sim_set_faults(ABSENT);
    const uint8_t byte = 0x5A;
    for (int attempt = 0; attempt < 2; attempt++) {
        EXPECT_EQ(I2C_Device_Write(I2C_BUS_PATH, CHIP_ADDRESS, 3, &byte, 1), -2);
        EXPECT_EQ(take_log(), (LINES{no_bus, no_transfer, no_write}));
    }
    sim_set_faults({});
    EXPECT_EQ(I2C_Device_Write(I2C_BUS_PATH, CHIP_ADDRESS, 3, &byte, 1), 0);
    const int first = g_i2c_fd;

    sim_set_faults(ABSENT);
    EXPECT_EQ(I2C_Init(I2C_BUS_PATH), -1);
    EXPECT_EQ(I2C_Init(nullptr), -1);
    EXPECT_EQ(take_log(), (LINES{no_bus, "ERROR filepath is null"}));
    EXPECT_EQ(g_i2c_fd, first);

    sim_set_faults({});
    EXPECT_EQ(I2C_Init(I2C_BUS_PATH), 0);
    const int second = g_i2c_fd;
    EXPECT_NE(second, first) << "the new one is opened before the old one is closed";
    EXPECT_EQ(fcntl(first, F_GETFD), -1);
    EXPECT_EQ(I2C_Deinit(), 0);
    EXPECT_EQ(g_i2c_fd, -1);
    EXPECT_EQ(fcntl(second, F_GETFD), -1);
}

TEST(I2cAccess, SendsWhatItIsGivenOrRefuses)
{
    reset_engine();
    static const std::vector<uint8_t> data(65535, 0xA5);
    static const LINES refused = {no_write};
    static const LINES failed = {no_transfer, "ERROR I2c_Write Failed at addr=[0x161]\n"};
    // clang-format off
    static const struct {
        const char *fault; uint16_t addr; const uint8_t *data; int len, result; size_t sent; LINES log;
    } cases[] = {
        {"register number refused",    0x60,  nullptr,         0,  0, 1, {}},
        {"longer write cut",           0x60,  data.data(),     3,  0, 4, {}},
        {"high address bits sent",     0x160, data.data(),     1,  0, 2, {}},
        {"address cut in the message", 0x161, data.data(),     1, -2, 2, failed},
        {"length taken as unsigned",   0x60,  data.data(),    -1, -2, 0, refused},
        {"null data read",             0x60,  nullptr,         1, -2, 0, refused},
        {"length field overrun",       0x60,  data.data(), 65535, -2, 0, refused},
    };
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_EQ(I2C_Device_Write(I2C_BUS_PATH, c.addr, 90, c.data, c.len), c.result) << c.fault;
        const auto sent = sim_take_transactions();
        EXPECT_EQ(sent.empty() ? 0U : sent[0].len, c.sent) << c.fault;
        EXPECT_EQ(take_log(), c.log) << c.fault;
    }
    sim_set_faults(SILENT);
    EXPECT_EQ(i2cSendRegister(3, 0), 0) << "failures show in the log only";
}
