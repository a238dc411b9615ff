/* The debug console: what each text does, and the pipe and the dump file of a running service. */
#include "console/console.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "entry/start_up.h"
#include "service/command_service.h"
#include "sim/i2c_bus_sim.h"
#include "tests/service_process.h"
#include "tests/support.h"
#include "trim/channels.h"

/* The first line that a text logs, and how many more; registers written. */
static const struct {
    const char *fault;
    std::string text;
    const char *line;
    int more;
    int writes;
} text_cases[] = {
    {"keyword needs more than its first letter", "yes", "INFO enable si5351", 0, 0},
    {"second keyword of y", "enable", "INFO enable si5351", 0, 0},
    {"upper case refused", "DISABLE", "INFO disable si5351", 0, 0},
    {"no default channel", "inc", "INFO ch:1 increase", 1, 8},
    {"argument without a blank", "inc2\n", "INFO ch:1 increase", 1, 8},
    {"long keyword", "INCrease 3\n", "INFO ch:3 increase", 1, 8},
    {"second line obeyed", "inc 1\ndec 1\n", "INFO ch:1 increase", 1, 8},
    {"channel 0", "inc 0", "INFO ch:0 increase", 0, 0},
    {"channel 4", "decrease 4", "INFO ch:4 decrease", 0, 0},
    {"tab and line end as blanks", "dec\t\n 2", "INFO ch:2 decrease", 1, 8},
    {"garbage behind a number", "dec 2x", "INFO ch:2 decrease", 1, 8},
    {"reset at the centre writes", "reset 2", "INFO ch:2 reset", 0, 0},
    {"init defaults", "init", "INFO ch:1 rate:48000 init", 1, 8},
    {"init second default", "INIT 2", "INFO ch:2 rate:48000 init", 1, 8},
    {"init refused", "init 2 100", "INFO ch:2 rate:100 init", 2, 0},
    {"step defaults", "step", "INFO set si5351 rate:1 step:100", 1, 0},
    {"step second default", "step 44100", "INFO set si5351 rate:44100 step:100", 0, 0},
    {"smallest number refused", "step 48000 -2147483648",
     "INFO set si5351 rate:48000 step:-2147483648", 0, 0},
    {"largest number refused", "step 48000 2147483647",
     "INFO set si5351 rate:48000 step:2147483647", 0, 0},
    {"largest number and one", "step 48000 2147483648", "INFO set si5351 rate:48000 step:100", 0,
     0},
    {"scan goes on after a failure", "step x 600", "INFO set si5351 rate:1 step:100", 1, 0},
    {"word of 31 too long", "dec" + std::string(28, 'x') + " 2", "INFO ch:2 decrease", 1, 8},
    {"word of 32 split", "dec" + std::string(28, 'x') + "2 3", "INFO ch:1 decrease", 1, 8},
    {"format in the text", "dec %s%n%s%n", "INFO ch:1 decrease", 1, 8},
    {"dump", "Dumped", "INFO dump si5351 param", 0, 0},
    {"leading blank skipped", " inc", nullptr, 0, 0},
    {"shortened keyword", "in", nullptr, 0, 0},
    {"empty", "", nullptr, 0, 0},
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

static bool is_open(const std::string &path)
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // of the folder itself
        if (std::filesystem::read_symlink(entry, gone) == path) return true;
    }
    return false;
}

struct READ_T {
    ssize_t length; // of a text, or what there is in place of one
    int error;
};
static std::deque<READ_T> reads; // what the next ones give in place of the C library's

/* Stands before the C library's function of the same name. */
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t read(int fd, void *buffer, size_t size)
{
    if (reads.empty()) return syscall(SYS_read, fd, buffer, size);
    const READ_T next = reads.front();
    reads.pop_front();
    if (next.length > 0) memcpy(buffer, "rst 1\n", static_cast<size_t>(next.length));
    errno = next.error;
    return next.length;
}

TEST(Console, APipeThatCannotBeReadIsGivenUp)
{
    static const struct {
        READ_T last;
        std::string reason;
    } cases[] = {{{0, 0}, "0:Success"}, {{-1, EIO}, "5:Input/output error"}};
    umask(0);
    for (const auto &c : cases) {
        reset_engine();
        reads = {{-1, EINTR}, {6, 0}, c.last};
        EXPECT_EQ(handle_cmd(), 0);
        EXPECT_EQ(take_log(), (LINES{"INFO ch:1 reset",
                                     "ERROR read pipe /tmp/si5351 fail, errno " + c.reason}));
        struct stat status = {};
        EXPECT_EQ(stat("/tmp/si5351", &status), 0);
        EXPECT_EQ(status.st_mode, S_IFIFO | 0777);
        EXPECT_FALSE(is_open("/tmp/si5351")) << "left open";
    }
}

TEST(CommandSocket, IsRefusedWhereItCannotBeWaitedFor)
{
    reset_engine();
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<int> taken = {0};
    while (taken.back() >= 0 && taken.back() < 1023)
        taken.push_back(fcntl(0, F_DUPFD_CLOEXEC, 0));
    EXPECT_EQ(udp_socket_create("127.0.0.1", 0), -1) << "a descriptor of 1024";
    for (size_t i = 1; i < taken.size(); i++)
        close(taken[i]);
    EXPECT_EQ(udp_socket_create(nullptr, 0), -1);
    EXPECT_EQ(take_log(), LINES{"ERROR create socket<127.0.0.1:0> err"});
}

/* Registers of output dividers come in blocks, each eight ascending ones of one thread. Returns how
 * often the threads took turns. */
static int check_blocks()
{
    std::vector<SIM_TRANSACTION_T> writes;
    for (const SIM_TRANSACTION_T &write : sim_take_transactions()) {
        if (write.reg >= 42 && write.reg < 66) writes.push_back(write);
    }
    int turns = 0;
    for (size_t i = 0; i < writes.size(); i++) {
        const SIM_TRANSACTION_T &first = writes[i - i % 8];
        const bool in_order = writes[i].reg == first.reg + i % 8;
        EXPECT_TRUE(writes[i].thread == first.thread && in_order) << "write " << i;
        if (i > 0 && writes[i].thread != writes[i - 1].thread) turns++;
    }
    EXPECT_EQ(writes.size() % 8, 0U);
    return turns;
}

/* Start-up and the service drive the engine while a console does; under the thread sanitizer this
 * tells whether each of them takes the lock. The service thread lives as long as the process. */
TEST(Console, NoTwoBlocksInterleaveWithTheService)
{
    static const char *const texts[] = {"inc 1", "init 2 44100", "step 48000 1200", "dump"};
    reset_engine();
    std::atomic<int> typed{0};
    std::atomic<bool> done{false};
    std::thread console([&] {
        for (; !done; usleep(100)) // or it would hardly let go of the lock
            run_console_command(texts[typed++ % 4]);
    });
    while (typed < 20)
        usleep(1000);
    sim_set_faults({0, 0, 0, 50}); // a bus slow enough for both to want it
    EXPECT_EQ(vx_si5351_start2(), 0);
    sim_set_faults({});
    const int client = open_client();
    await_port();
    {
        const std::lock_guard lock(g_engine_lock);
        send_words(client, {0x1234, 1, 48000});
        EXPECT_EQ(receive_reply(client).size(), 64U) << "the echo waits for the engine";
    }
    for (uint32_t i = 0; i < 1000; i++) {
        send_words(client, {0x1235 + i % 4, 1 + i % 3, i, i});
        if (i % 20 != 0) continue;
        send_words(client, {0x1234, 3, 96000});
        EXPECT_EQ(receive_reply(client).size(), 64U);
    }
    done = true;
    console.join();
    // The line of the dump is the last thing that the service does: from there on it only waits.
    EXPECT_NE(fetch_dump(client), "");
    while (read_log().find("cmd:0x1239-dump") == std::string::npos)
        usleep(1000);
    EXPECT_GT(check_blocks(), 10) << "the threads took turns only";
}
