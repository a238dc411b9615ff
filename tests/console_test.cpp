/* The debug console: what each text does, and the pipe and the dump file of a running service. */
#include "console/console.h"

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "service/command_service.h"
#include "sim/i2c_bus_sim.h"
#include "tests/service_process.h"
#include "tests/support.h"
#include "trim/rate.h"

using LINES = std::vector<std::string>;

static constexpr const char *DUMP_AT_START =
    "init 5351 conf\n"
    "ch:1 rate:48000 value:253600 xValue:0 defVal:253600 count:0 step:1200 status:set param "
    "mult:73 num:253600 denom:1048575 div:1\n"
    "ch:2 rate:48000 value:253600 xValue:0 defVal:253600 count:0 step:1200 status:set param "
    "mult:73 num:253600 denom:1048575 div:1\n"
    "ch:3 rate:48000 value:253600 xValue:0 defVal:253600 count:0 step:1200 status:set param "
    "mult:73 num:253600 denom:1048575 div:1\n"
    "5351 step conf\n"
    "44100:1400 48000:1200 88200:700 96000:600 176400:200 192000:160\n";

/* The first line that a text logs, and how many more; registers written. */
static const struct {
    const char *fault;
    std::string text;
    const char *line;
    int more;
    int writes;
} text_cases[] = {
    {"keyword needs more than its first letter", "yes", "INFO enable si5351", 0, 0},
    {"upper case refused", "DISABLE", "INFO disable si5351", 0, 0},
    {"n taken for no command", "nothing", "INFO disable si5351", 0, 0},
    {"no default channel", "inc", "INFO ch:1 increase", 1, 8},
    {"argument without a blank", "inc2\n", "INFO ch:1 increase", 1, 8},
    {"long keyword", "INCrease 3\n", "INFO ch:3 increase", 1, 8},
    {"second line obeyed", "inc 1\ndec 1\n", "INFO ch:1 increase", 1, 8},
    {"channel 0", "inc 0", "INFO ch:0 increase", 0, 0},
    {"channel 4", "dec 4", "INFO ch:4 decrease", 0, 0},
    {"negative channel", "rst -1", "INFO ch:-1 reset", 0, 0},
    {"tab and line end as blanks", "dec\t\n 2", "INFO ch:2 decrease", 1, 8},
    {"number cut at 32 bits", "dec 4294967298", "INFO ch:1 decrease", 1, 8},
    {"number cut at 64 bits", "dec 18446744073709551618", "INFO ch:1 decrease", 1, 8},
    {"garbage behind a number", "dec 2x", "INFO ch:2 decrease", 1, 8},
    {"no number", "dec two", "INFO ch:1 decrease", 1, 8},
    {"reset at the centre writes", "reset 2", "INFO ch:2 reset", 0, 0},
    {"reset out of range", "reset 5", "INFO ch:5 reset", 0, 0},
    {"init defaults", "init", "INFO ch:1 rate:48000 init", 1, 8},
    {"init second default", "INIT 2", "INFO ch:2 rate:48000 init", 1, 8},
    {"init refused", "init 2 100", "INFO ch:2 rate:100 init", 2, 0},
    {"init channel refused", "init 7 48000", "INFO ch:7 rate:48000 init", 2, 0},
    {"step defaults", "step", "INFO set si5351 rate:1 step:100", 1, 0},
    {"step second default", "step 44100", "INFO set si5351 rate:44100 step:100", 0, 0},
    {"step range-checked", "step 48000 -7", "INFO set si5351 rate:48000 step:-7", 0, 0},
    {"scan goes on after a failure", "step x 600", "INFO set si5351 rate:1 step:100", 1, 0},
    {"word of 31 refused", "dec" + std::string(28, 'x') + " 2", "INFO ch:2 decrease", 1, 8},
    {"word of 32 split", "dec" + std::string(28, 'x') + "2 3", "INFO ch:1 decrease", 1, 8},
    {"long word", "dec" + std::string(1000, '2') + " 3", "INFO ch:1 decrease", 1, 8},
    {"format in the text", "dec %s%n%s%n", "INFO ch:1 decrease", 1, 8},
    {"dump", "Dumped", "INFO dump si5351 param", 0, 0},
    {"leading blank skipped", " inc", nullptr, 0, 0},
    {"shortened keyword", "in", nullptr, 0, 0},
    {"other word", "help", nullptr, 0, 0},
    {"empty", "", nullptr, 0, 0},
    {"control characters", "\x01\x7F\xFF", nullptr, 0, 0},
};

TEST(Console, TextsActAsTheirKeywordSays)
{
    for (const auto &c : text_cases) {
        reset_engine();
        run_console_command(c.text.c_str());
        const LINES log = take_log();
        ASSERT_EQ(log.size(), c.line == nullptr ? 0U : 1U + static_cast<size_t>(c.more)) << c.fault;
        EXPECT_EQ(log.empty() ? "" : log[0], c.line == nullptr ? "" : c.line) << c.fault;
        EXPECT_EQ(take_writes().size(), static_cast<size_t>(c.writes)) << c.fault;
    }
}

TEST(Console, CommandsLeaveTheirStatusAndIgnoreTheSwitch)
{
    reset_engine();
    for (const char *text : {"no", "inc 2", "dec 3", "rst 1", "step 48000 600"})
        run_console_command(text);
    EXPECT_EQ(g_s32EnableSi5351, 0);
    EXPECT_EQ(stSi5351Conf[1].status, VX_SI5351_SET_INC);
    EXPECT_EQ(stSi5351Conf[1].value, 252400);
    EXPECT_EQ(stSi5351Conf[2].status, VX_SI5351_SET_DEC);
    EXPECT_EQ(stSi5351Conf[0].status, VX_SI5351_SET_RESET);
    EXPECT_EQ(stSi5351Conf[1].step, 1200) << "the step table reaches a channel with its rate";
    run_console_command("init 2 48000");
    EXPECT_EQ(stSi5351Conf[1].step, 600);
    EXPECT_EQ(stSi5351Conf[1].status, VX_SI5351_SET_PARAM);
    run_console_command("init 3 5");
    EXPECT_EQ(stSi5351Conf[2].status, VX_SI5351_SET_PARAM) << "also when the rate is refused";
    run_console_command("Y");
    EXPECT_EQ(g_s32EnableSi5351, 1);
}

TEST(Console, DumpRewritesItsFileAndFollowsNoLink)
{
    reset_engine();
    (void)unlink("/tmp/si5351.txt");
    run_console_command("inc 3");
    run_console_command("dump");
    reset_engine();
    run_console_command("dump");
    EXPECT_EQ(read_file("/tmp/si5351.txt"), DUMP_AT_START);

    take_log();
    (void)rename("/tmp/si5351.txt", "/tmp/si5351_of_somebody");
    ASSERT_EQ(symlink("/tmp/si5351_of_somebody", "/tmp/si5351.txt"), 0);
    run_console_command("inc 1");
    run_console_command("dump");
    EXPECT_EQ(take_log().back(),
              "ERROR open /tmp/si5351.txt fail, errno 40:Too many levels of symbolic links");
    EXPECT_EQ(read_file("/tmp/si5351_of_somebody"), DUMP_AT_START);
    (void)unlink("/tmp/si5351.txt");
    (void)unlink("/tmp/si5351_of_somebody");
}

/* Service and console drive the chip at the same time; a block is eight ascending registers of one
 * thread. The service thread lives as long as the process. */
TEST(Console, NoTwoBlocksInterleaveWithTheService)
{
    reset_engine();
    std::thread(si5351_svr_start).detach();
    const int client = open_client();
    await_port();
    {
        const std::lock_guard lock(g_engine_lock);
        send_words(client, {0x1234, 1, 48000});
        EXPECT_EQ(receive_reply(client).size(), 64U) << "the echo waits for the engine";
    }

    std::thread console([] {
        for (int i = 0; i < 1000; i++) {
            run_console_command(i % 20 < 10 ? "inc 1" : "init 2 44100");
            usleep(100); // or it would hardly let go of the lock
        }
    });
    for (uint32_t i = 0; i < 1000; i++) {
        send_words(client, {0x1235 + i % 3, 1 + i % 3, 0});
        if (i % 20 != 0) continue;
        send_words(client, {0x1238, 1 + i % 3, i, i});
        send_words(client, {0x1234, 3, 96000});
        EXPECT_EQ(receive_reply(client).size(), 64U);
    }
    console.join();
    // The log line of the dump is the last thing it does: from there on it only waits.
    EXPECT_NE(fetch_dump(client), "");
    for (bool idle = false; !idle;) {
        for (const std::string &line : take_log())
            idle = idle || line.find("cmd:0x1239-dump") != std::string::npos;
    }
    const auto writes = sim_take_transactions();
    ASSERT_EQ(writes.size() % 8, 0U);
    ASSERT_GT(writes.size(), 500U * 8);
    int changes = 0;
    for (size_t i = 0; i < writes.size(); i++) {
        const auto &first = writes[i - i % 8];
        ASSERT_EQ(writes[i].thread, first.thread) << "write " << i;
        ASSERT_EQ(writes[i].reg, first.reg + i % 8) << "write " << i;
        if (i > 0 && writes[i].thread != writes[i - 1].thread) changes++;
    }
    EXPECT_GT(changes, 10) << "the threads took turns only";
}
