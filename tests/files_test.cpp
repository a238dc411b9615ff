/* The files and the pipe of a running service: whole at every moment, and safe when they cannot be
 * written or are not what they should be. */
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "tests/engine_model.h"
#include "tests/service_process.h"

static constexpr const char *PIPE = "/tmp/si5351";
static constexpr const char *STATUS = "/tmp/genlock.json";

using Files = RUNNING_SERVICE_T;

TEST_F(Files, PipeCommandsReachTheChipWhateverTheSwitch)
{
    type_text("inc 2\n");
    await_output(process, "CLK1 runs at 6144124.14 Hz");
    type_text("no\n");
    await_output(process, "disable si5351 --[");
    command(0x1235, 2); // takes the status, not the step
    command(0x1234, 3, 44100);
    await_output(process, "set param ch:3 rate:44100 --[");
    type_text("step 48000 600\n");
    type_text("init 2 48000\n");
    type_text("inc 2\n");
    await_output(process, "CLK1 runs at 6144076.14 Hz"); // half a step above 6144028.14
    type_text("dec 2\n");
    type_text("dump\n");
    await_output(process, "dump si5351 param --[");
    const std::string dump = read_file("/tmp/si5351.txt");
    EXPECT_NE(dump.find("ch:2 rate:48000 value:253594 xValue:253594 defVal:253600 count:0 step:600 "
                        "status:decrease mult:73 num:253594 denom:1048575 div:1\n"),
              std::string::npos)
        << dump;
    EXPECT_NE(dump.find("ch:3 rate:48000 "), std::string::npos) << "reached the chip: " << dump;
    EXPECT_NE(dump.find("\n5351 step conf\n44100:1400 48000:600 88200:700 "), std::string::npos);
    EXPECT_EQ(read_output(process).find("CLK2 runs at 5644"), std::string::npos);
}

TEST_F(Files, HostileTextsChangeNothing)
{
    type_text(std::string(1 << 20, 'x'));
    type_text(std::string(100, '\0') + "inc 2");
    type_text(std::string("\0inc 2\n", 7));
    type_text(std::string(10000, '%') + "s%n%n");
    type_text("%s%s%n%n\n");
    EXPECT_EQ(fetch_dump(client), model_dump(model));
    EXPECT_EQ(read_output(process).find("increase"), std::string::npos);
}

/* Report n goes to channel n % 3 + 1 with n and -n, so each text tells the instant it stems from.
 */
TEST_F(Files, AReaderSeesWholeTextsOfOneInstantOnly)
{
    static constexpr int REPORTS = 20000;
    for (int n = 1; n <= 3; n++)
        command(0x1238, n % 3 + 1, n, -n);
    EXPECT_EQ(fetch_dump(client), model_dump(model));

    std::atomic<bool> done{false};
    std::thread reader([&] {
        MODEL_T seen;
        for (int reads = 0; !done || reads < 100; reads++) {
            const std::string text = read_file(STATUS);
            int newest = 0;
            for (size_t at = 0; (at = text.find("fifoTotal\":", at)) != std::string::npos; at++)
                newest = std::max(newest, std::stoi(text.substr(at + 11)));
            for (int n = newest - 2; n <= newest; n++)
                apply_command(&seen, 0x1238, n % 3 + 1, n, -n);
            ASSERT_EQ(text, model_status(seen)) << "read " << reads;
        }
    });
    for (int n = 4; n <= REPORTS; n++) {
        command(0x1238, n % 3 + 1, n, -n);
        if (n % 100 > 0) continue;
        command(0x1234, 9); // its echo: all reports before it are handled
    }
    EXPECT_EQ(fetch_dump(client), model_dump(model));
    done = true;
    reader.join();
    EXPECT_EQ(read_file(STATUS), model_status(model));
}

static bool cover_tmp(unsigned long flags, const char *options)
{
    return mount("tmpfs", "/tmp", "tmpfs", flags, options) == 0;
}

static bool make_read_only()
{
    return cover_tmp(MS_RDONLY, "mode=1777");
}

static bool fill_up()
{
    if (!cover_tmp(0, "mode=1777,size=8k")) return false;
    const std::string page(16384, 'x');
    const int fd = open("/tmp/filler", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    while (write(fd, page.data(), page.size()) > 0)
        continue;
    close(fd);
    return true;
}

static bool put_directories_there()
{
    if (!cover_tmp(0, "mode=1777")) return false;
    for (const char *path : {"/tmp/fifo.json", "/tmp/fifo.json/x", "/tmp/si5351"})
        (void)mkdir(path, 0700);
    return true;
}

static bool put_links_there()
{
    if (!cover_tmp(0, "mode=1777")) return false;
    for (const char *path : {"/tmp/fifo.json", "/tmp/si5351.txt"})
        (void)symlink("/tmp/of_somebody", path);
    return true;
}

/* A supervisor's socket, and the wait for a message to it. */
static int open_supervisor(const std::string &path)
{
    sockaddr_un address = {AF_UNIX, ""};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    return fd;
}

static void await_message(int supervisor, const std::string &text)
{
    std::string message = "none";
    while (message.find(text) == std::string::npos && !message.empty())
        message = receive_reply(supervisor);
    EXPECT_NE(message, "") << text;
}

/* What is logged once the pipe is lost and the console makes it anew, and what a supervisor is told
 * of the status file; null: it succeeds. */
static const struct {
    const char *name;
    bool (*make)();
    const char *pipe_line;
    const char *dump_line;
    const char *told;
} tmp_faults[] = {
    {"read-only", make_read_only, "mkfifo /tmp/si5351, errno 30:Read-only file system --[", nullptr,
     "/tmp/fifo.json: Read-only file system"},
    {"full", fill_up, nullptr, "write /tmp/si5351.txt fail, errno 28:No space left on device --[",
     "/tmp/fifo.json: No space left on device"},
    {"directories", put_directories_there, "mkfifo /tmp/si5351, errno 17:File exists --[", nullptr,
     "/tmp/fifo.json: File exists"},
    {"links", put_links_there, nullptr,
     "open /tmp/si5351.txt fail, errno 40:Too many levels of symbolic links --[", nullptr},
};

/* The service's output lies on the covered /tmp, where its descriptor still leads. */
TEST(FileFaults, TheServiceGoesOnAndRecovers)
{
    if (unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "the kernel refuses a mount namespace";
    const std::string home = "/mnt";
    ASSERT_EQ(mount("tmpfs", home.c_str(), "tmpfs", 0, ""), 0);
    setenv("SI5351_SIM_REGISTERS", (home + "/regs").c_str(), 1);
    const int supervisor = open_supervisor(home + "/notify");
    for (const auto &fault : tmp_faults) {
        ASSERT_TRUE(fault.make()) << fault.name;
        const SERVICE_PROCESS_T process = start_service(SI5351_APP_SIM, home);
        const int client = open_client();
        await_output(process, "CLK2 runs at 6144028.14 Hz");
        await_message(supervisor,
                      "READY=1\nSTATUS=serving; register writes failed: 0 at the start,");
        if (fault.pipe_line != nullptr) await_output(process, fault.pipe_line, 2);
        if (fault.dump_line != nullptr) {
            type_text("dump\n");
            await_output(process, fault.dump_line);
        }
        MODEL_T model;
        const long before = cpu_ticks(process.pid);
        for (int report = 0; report < 100; report++) {
            send_words(client, {0x1238, 1, 7, 7});
            send_words(client, {0x1235, 2, 0});
            apply_command(&model, 0x1238, 1, 7, 7);
            apply_command(&model, 0x1235, 2, 0, 0);
        }
        EXPECT_EQ(fetch_dump(client), model_dump(model)) << fault.name;
        EXPECT_EQ(read_file(STATUS), fault.told == nullptr ? model_status(model) : "")
            << fault.name;
        EXPECT_EQ(read_file("/tmp/fifo.json"), "") << fault.name;
        if (fault.told != nullptr) await_message(supervisor, fault.told);
        EXPECT_EQ(read_file("/tmp/of_somebody"), "") << fault.name;
        sleep(1);
        EXPECT_LT(cpu_ticks(process.pid) - before, 50) << fault.name << ": spins";

        ASSERT_EQ(umount2("/tmp", MNT_DETACH), 0);
        send_words(client, {0x1238, 1, 7, 7});
        EXPECT_EQ(fetch_dump(client), model_dump(model)) << fault.name;
        EXPECT_EQ(read_file(STATUS), model_status(model)) << fault.name;
        (void)unlink(STATUS);
        if (fault.pipe_line != nullptr) {
            type_text("dump\n");
            await_output(process, "dump si5351 param --[");
        }
        close(client);
        stop_service(process);
        (void)unlink(PIPE);
    }
}
