/* Trim stepping, rate change and reset: the records, the log, and what the chip makes of them. */
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

#include "tests/support.h"
#include "trim/rate.h"
#include "trim/record_text.h"
#include "trim/trim.h"

/* Plays moves on channel 1: u(p), d(own), r(eset); returns the result of the last one. */
static int play(const std::string &moves)
{
    SI5351_CONF_T *conf = &stSi5351Conf[0];
    int result = 0;
    for (const char move : moves) {
        if (move == 'u') result = vx_si5351_conf_inc(conf);
        if (move == 'd') result = vx_si5351_conf_dec(conf);
        if (move == 'r') result = vx_si5351_reset_chn2(1);
    }
    return result;
}

static std::string repeat(const std::string &moves, int times)
{
    std::string all;
    while (times-- > 0)
        all += moves;
    return all;
}

/* From the start record (48000 Hz, num 253600, step 1200) or another rate's. */
static const struct {
    const char *fault;
    int rate;
    std::string moves;
    int result, count, value, xValue;
} trim_cases[] = {
    {"sign of a step turned round", 48000, "u", 0, -1, 252400, 0},
    {"24th step refused", 48000, repeat("u", 24), 0, -24, 224800, 0},
    {"range ends one step late", 48000, repeat("u", 25), 1, -24, 224800, 0},
    {"lower end one step late", 48000, repeat("d", 25), 1, 24, 282400, 0},
    {"stuck at the lower end", 48000, repeat("d", 25) + "u", 0, 23, 281200, 0},
    {"centre not learned on the way back", 48000, "du", 0, 0, 253612, 253612},
    {"centre does not creep on", 48000, repeat("du", 3), 0, 0, 253636, 253636},
    {"steps counted from the learned centre", 48000, "dudd", 0, 2, 256000, 253612},
    {"centre of the other side kept", 48000, "duduud", 0, 0, 253588, 253588},
    {"centre creeps up on the lower side", 48000, repeat("ud", 2), 0, 0, 253576, 253576},
    // 2000 returns of 12 reach the edge of the band, 24000 away; the next one still counts.
    {"band ends early", 48000, repeat("du", 2000), 0, 0, 277600, 277600},
    {"band open at its end", 48000, repeat("du", 2001), 0, 0, 277612, 277612},
    {"band never ends", 48000, repeat("du", 2002), 0, 0, 253612, 253612},
    {"lower band never ends", 48000, repeat("ud", 2002), 0, 0, 253588, 253588},
    {"creep of another rate", 44100, "du", 0, 0, 753814, 753814},
    {"creep rounded up", 192000, "du", 0, 0, 650881, 650881},
    {"reset moves two steps", 48000, "uur", 0, -1, 252400, 0},
    {"reset does not learn", 48000, "uurr", 0, 0, 253588, 253588},
    {"reset goes past the centre", 48000, "uurrr", 0, 0, 253588, 253588},
    {"reset from below", 48000, "dddddrrrrr", 0, 0, 253612, 253612},
};

TEST(Trim, MovesLeadToTheNumeratorsWorkedByHand)
{
    for (const auto &c : trim_cases) {
        reset_engine();
        ASSERT_EQ(vx_si5351_set_conf(1, c.rate), 0);
        EXPECT_EQ(play(c.moves), c.result) << c.fault;
        const SI5351_CONF_T &conf = stSi5351Conf[0];
        EXPECT_EQ(conf.count, c.count) << c.fault;
        EXPECT_EQ(conf.value, c.value) << c.fault;
        EXPECT_EQ(conf.num, static_cast<uint32_t>(c.value)) << c.fault;
        EXPECT_EQ(conf.xValue, c.xValue) << c.fault;
    }
}

TEST(Trim, AStepSizeBeyondAllReasonWraps)
{
    reset_engine();
    stStep[1] = INT_MAX;
    vx_si5351_set_conf(1, 48000);
    play("dduudu");
    // The band's edge, 20 steps up, wraps to 253600 - 20 and lies below the centre: never in band.
    EXPECT_EQ(stSi5351Conf[0].value, 253600 + INT_MAX / 100);
}

TEST(Trim, CallsReturnAndLogWhatTheyMust)
{
    static SI5351_CONF_T stray;
    stray = stSi5351Conf[0];
    stray.ch = INT_MIN;
    // clang-format off
    static const struct { int (*call)(); int result; LINES log; } cases[] = {
        {[] { return vx_si5351_conf_inc(nullptr); }, -1, {}},
        {[] { return vx_si5351_conf_dec(nullptr); }, -1, {}},
        {[] { return vx_si5351_param_inc_dec2(nullptr); }, -1, {}},
        {[] { return vx_si5351_conf_inc(&stray); }, -1, {"ERROR invalid ch:-2147483648"}},
        {[] { return vx_si5351_conf_dec(&stray); }, -1, {"ERROR invalid ch:-2147483648"}},
        {[] { setReg(0); return 0; }, 0, {"ERROR setReg invalid ch:0 "}},
        {[] { setReg(4); return 0; }, 0, {"ERROR setReg invalid ch:4 "}},
        {[] { return vx_si5351_increase(0); }, 0, {}},
        {[] { return vx_si5351_decrease(4); }, 0, {}},
        {[] { return vx_si5351_reset_chn2(-1); }, 0, {}},
        {[] { return vx_si5351_reset_chn2(4); }, 0, {}},
        {[] { return play(repeat("u", 25)); }, 1, {"INFO mclk is max, count:-24"}},
        {[] { return play(repeat("d", 49)); }, 1, {"INFO mclk is min,ch:1 count:24"}},
        {[] { return set_fifo_stat(0, 1, 1); }, 0, {}},
        {[] { return set_fifo_stat(3, 9, 5); }, 0, {}},
        {[] { return set_chn_stat(4, VX_SI5351_DUMP); }, 0, {}},
        {[] { return vx_si5351_set_conf(0, 48000); }, -1, {"ERROR invalid ch:0"}},
        {[] { return vx_si5351_set_param(4, 48000); }, -1,
         {"ERROR invalid ch:4", "ERROR set 5351 conf err, ret:-1"}},
    };
    // clang-format on
    reset_engine();
    for (const auto &c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        EXPECT_EQ(c.call(), c.result);
        EXPECT_EQ(take_log(), c.log);
        EXPECT_EQ(take_writes(), LINES{});
    }
    const LINES logged = {"INFO si5351 ch:2 rate:48000 value:254800 def:253600 status:set param"};
    EXPECT_EQ(vx_si5351_decrease(2), 0);
    EXPECT_EQ(take_log(), logged);
    EXPECT_EQ(take_writes().size(), 8U);
    EXPECT_EQ(vx_si5351_param_inc_dec2(&stSi5351Conf[1]), 0);
    EXPECT_EQ(take_log(), logged);
    EXPECT_EQ(take_writes().size(), 8U);
    EXPECT_EQ(read_registers(50, 8), "FF FF 10 22 9F F1 A8 1F"); // f 31, P2 0x1A81F
}

TEST(Rate, AChangeStartsTheChannelAfresh)
{
    reset_engine();
    play("du");
    stSi5351Conf[1].fifoUsed = 7;
    stStep[0] = 1401;
    EXPECT_EQ(vx_si5351_set_param(2, 44100), 0);
    EXPECT_EQ(read_registers(50, 8), "FF FF 10 25 DC F0 44 5C");
    EXPECT_EQ(take_log(), LINES{"INFO init ch:2 rate:44100 value:753800 xValue:0 defVal:753800 "
                                "count:0 step:1401 status:set param mult:79 num:753800 "
                                "denom:1048575 div:1\n"});
    EXPECT_EQ(stSi5351Conf[1].fifoUsed, 7);

    vx_si5351_set_param(1, 48000);
    EXPECT_EQ(stSi5351Conf[0].xValue, 0);
    EXPECT_EQ(stSi5351Conf[0].value, 253600);
}

TEST(Rate, ARefusedRateBarsTrimmingUntilASupportedOne)
{
    reset_engine();
    vx_si5351_increase(1);
    take_log();
    take_writes();
    EXPECT_EQ(vx_si5351_set_param(1, 32000), -1);
    EXPECT_EQ(take_log(), (LINES{"ERROR invalid rate:32000", "ERROR set 5351 conf err, ret:-1"}));
    const SI5351_CONF_T &conf = stSi5351Conf[0];
    EXPECT_EQ(conf.rate, 32000);
    EXPECT_EQ(conf.value, 0);
    EXPECT_EQ(conf.num, 252400U);
    EXPECT_EQ(conf.count, -1);

    vx_si5351_reset_chn2(1);
    EXPECT_EQ(take_log(),
              (LINES{"ERROR invalid rate:32000",
                     "INFO si5351 ch:1 rate:32000 reset to value:0 xvalue:0 def:253600"}));
    EXPECT_EQ(take_writes(), LINES{});
    EXPECT_EQ(vx_si5351_set_param(1, 48000), 0);
    EXPECT_EQ(vx_si5351_conf_inc(&stSi5351Conf[0]), 0);
}

TEST(Rate, PendingResetsAreHandledForTheChannelsThatAsk)
{
    reset_engine();
    for (int32_t ch = 1; ch <= 3; ch++)
        vx_si5351_increase(ch);
    set_chn_stat(2, VX_SI5351_SET_RESET);
    vx_si5351_set_conf(3, 1);
    set_chn_stat(3, VX_SI5351_SET_RESET);
    handle_reset_stat();
    EXPECT_EQ(stSi5351Conf[0].count, -1);
    EXPECT_EQ(stSi5351Conf[1].count, 0);
    EXPECT_EQ(stSi5351Conf[1].status, VX_SI5351_SET_RESET);
    EXPECT_EQ(stSi5351Conf[2].status, VX_SI5351_SET_PARAM);
}

TEST(Channels, DumpListsTheThreeRecords)
{
    reset_engine();
    si5351pid = 77;
    EXPECT_EQ(set_chn_stat(3, static_cast<VX_SI5351CMD_E>(0x123A)), 0);
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    EXPECT_EQ(vx_si5351_dump(stream), 1);
    EXPECT_EQ(vx_si5351_dump(nullptr), -1);
    (void)fclose(stream);
    EXPECT_STREQ(text, "si5351 pid:77 \n"
                       "ch:1 rate:48000 value:253600 status:set param\n"
                       "ch:2 rate:48000 value:253600 status:set param\n"
                       "ch:3 rate:48000 value:253600 status:unknonw\n"
                       "\n");
    free(text);
}
