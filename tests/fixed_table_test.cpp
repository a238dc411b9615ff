/* Table-driven setting: every set against its rule, and what the simulated chip makes of it. */
#include "chip/fixed_table.h"

#include <climits>
#include <gtest/gtest.h>
#include <numeric>
#include <unistd.h>
#include <utility>

#include "sim/i2c_bus_sim.h"
#include "tests/support.h"
#include "trim/bring_up.h"
#include "trim/rate.h"
#include "trim/trim.h"

static unsigned slept_us;

/* Stands before the C library's function of the same name. */
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int usleep(useconds_t us)
{
    slept_us += us;
    return 0;
}

static std::string to_text(const CH_PARAM_T &param)
{
    const auto &[p1, p2, p3] = param.divider;
    return std::to_string(param.div) + " " + std::to_string(p1) + " " + std::to_string(p2) + " " +
           std::to_string(p3);
}

/* The fixed set in use, R divider code first, of 900 MHz over a multisynth output as a + b/c in
 * lowest terms. */
static std::string derive_param(int msp_hz, int div)
{
    const auto hz = static_cast<uint32_t>(msp_hz);
    const uint32_t divisor = std::gcd(900000000U, hz);
    const uint32_t b = 900000000U % hz / divisor;
    const uint32_t c = hz / divisor;
    return to_text(
        {static_cast<uint32_t>(div), {900000000U / hz * 128 + 128 * b / c - 512, 128 * b % c, c}});
}

static constexpr CH_PARAM_T earlier_param = {15, {4590, 1942, 22579}};

static void start_chip()
{
    reset_engine();
    ch_param = earlier_param;
    vx_si5351_init();
    take_writes();
    slept_us = 0;
}

// clang-format off
static const struct { int rate, output_hz, div; } rate_cases[] = {
    {44100, 5644750, 2},  {48000, 6144000, 2},   {88200, 11289500, 1},
    {96000, 12288000, 1}, {176400, 22579000, 0}, {192000, 24576000, 0},
};
// clang-format on

/* After a call: the set in use is the one of hz, eight registers were written with their pauses,
 * and the channel's output runs at hz, exactly. */
static void check_output(int ch, int hz, int div)
{
    EXPECT_EQ(to_text(ch_param), derive_param(hz << div, div));
    const LINES writes = take_writes();
    EXPECT_EQ(writes.size(), 8U);
    EXPECT_EQ(writes.front().substr(0, 3), std::to_string(8 * ch + 34) + ":");
    EXPECT_EQ(std::exchange(slept_us, 0), 800U);
    const SI5351_CLOCK_T clock = sim_read_output(ch - 1);
    EXPECT_TRUE(is_same_clock(clock, {static_cast<uint32_t>(hz), 1})) << get_clock_hz(clock);
}

TEST(FixedTable, EveryOutputIsExactToTheHertz)
{
    start_chip();
    EXPECT_EQ(to_text(ch_param), "0 0 0 0") << "bring-up leaves the set";
    for (const auto &c : rate_cases) {
        for (int ch = 1; ch <= 3; ch++) {
            EXPECT_EQ(vx_si5351_set(ch, c.rate), 1);
            check_output(ch, c.output_hz, c.div);
            for (int key = 300; key <= 2400; key += 300) {
                SCOPED_TRACE(std::to_string(c.rate) + " key " + std::to_string(key));
                EXPECT_EQ(vx_si5351_param_inc_set(ch, c.rate, key), 1);
                check_output(ch, c.output_hz + key, c.div);
                EXPECT_EQ(vx_si5351_param_dec_set(ch, c.rate, key), 1);
                check_output(ch, c.output_hz - key, c.div);
            }
        }
    }
    for (uint32_t row = 0; row < MSP_ROW_COUNT; row++) {
        EXPECT_EQ(mclk_msp_22579000_inc[row].row, row);
        EXPECT_EQ(mclk_msp_22579000_dec[row].row, row);
    }
}

static constexpr auto set = vx_si5351_set;
static constexpr auto inc = vx_si5351_param_inc_set;
static constexpr auto dec = vx_si5351_param_dec_set;
static constexpr auto inc44 = vx_si5351_param_44100x_inc_set;
static constexpr auto dec44 = vx_si5351_param_44100x_dec_set;

// clang-format off
/* What a call leaves in ch_param, and the third register of MS0 if it writes the earlier P1 to P3
 * to the chip; all other calls write nothing. */
static const struct {
    const char *fault; int (*call)(); int result; const char *param; const char *third = nullptr;
} refusal_cases[] = {
    {"unsupported rate written", [] { return set(1, -44100); }, 0, "15 4590 1942 22579"},
    {"channel 0 written",        [] { return set(0, 88200); }, 1, "1 4590 1942 22579"},
    {"channel 4 written",        [] { return inc(4, 48000, 300); }, 1, "2 4175 1851 6827"},
    {"refused key not written",  [] { return inc(1, 96000, 100); }, 0, "1 4590 1942 22579", "10"},
    {"refused key drops code",   [] { return dec(1, 44100, 2399); }, 0, "2 4590 1942 22579", "20"},
    {"row's offset for a key",   [] { return inc(1, 176400, 3000); }, 0, "0 4590 1942 22579", "00"},
    {"key 0 taken for nominal",  [] { return inc(1, 192000, 0); }, 0, "0 4590 1942 22579", "00"},
    {"refused rate not written", [] { return dec(1, 32000, 300); }, 0, "15 4590 1942 22579", "70"},
    {"raise writes, sets code",  [] { return inc44(300, 44100); }, 1, "15 4589 91999 112901"},
    {"lower writes, sets code",  [] { return dec44(2400, 176400); }, 1, "15 4590 70934 112883"},
    {"other family taken",       [] { return inc44(300, 48000); }, 0, "15 4590 1942 22579"},
    {"other key taken",          [] { return inc44(9600, 176400); }, 0, "15 4590 1942 22579"},
};
// clang-format on

TEST(FixedTable, WhatIsRefusedAndWhatItLeaves)
{
    start_chip();
    testing::internal::CaptureStdout();
    for (const auto &c : refusal_cases) {
        ch_param = earlier_param;
        EXPECT_EQ(c.call(), c.result) << c.fault;
        EXPECT_EQ(to_text(ch_param), c.param) << c.fault;
        EXPECT_EQ(take_writes().size(), c.third == nullptr ? 0U : 8U) << c.fault;
        if (c.third == nullptr) continue;
        EXPECT_EQ(read_registers(42, 8), "58 33 " + std::string(c.third) + " 11 EE 00 07 96");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "rate:-44100 error\n");
    EXPECT_EQ(take_log(), LINES{});
}

TEST(FixedTable, TheOlderResetPutsRecordAndOutputBack)
{
    start_chip();
    vx_si5351_set_param(2, 44100);
    vx_si5351_increase(2);
    stStep[0] = 1401;
    take_log();
    take_writes();
    EXPECT_EQ(vx_si5351_reset_chn(2), 0);
    check_output(2, 5644750, 2);
    EXPECT_EQ(take_log(), (LINES{"INFO init ch:2 rate:44100 value:753800 xValue:0 defVal:753800 "
                                 "count:0 step:1401 status:set param mult:79 num:753800 "
                                 "denom:1048575 div:1\n",
                                 "INFO si5351 ch:2 rate:44100 reset"}));

    vx_si5351_set_param(1, 32000); // refused: value 0
    stSi5351Conf[2].value = 0;
    take_log();
    for (const int ch : {INT_MIN, 0, 1, 3, 4})
        EXPECT_EQ(vx_si5351_reset_chn(ch), 0);
    EXPECT_EQ(stSi5351Conf[0].rate, 32000);
    EXPECT_EQ(to_text(ch_param), "2 4590 1942 22579");
    EXPECT_EQ(take_writes(), LINES{});
    EXPECT_EQ(take_log(), LINES{});
}
