/* The files and the pipe of a running service: whole at every moment, and safe when they cannot be
 * written or are not what they should be. */
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "tests/engine_model.h"
#include "tests/service_process.h"

static constexpr const char *PIPE = "/tmp/si5351";
static constexpr const char *STATUS = "/tmp/genlock.json";

using Files = RUNNING_SERVICE_T;

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

/* A supervisor's socket, and the wait for a message to it that begins with a text. */
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
    while (message.rfind(text, 0) != 0 && !message.empty())
        message = receive_reply(supervisor);
    EXPECT_NE(message, "") << text;
}

// clang-format off
/* How a /tmp is made that hides the one below it; what is logged of the pipe and of the dump, and
 * what a supervisor is told of the status file; null: it succeeds. */
static const struct { const char *name, *make, *pipe_line, *dump_line, *told; } tmp_faults[] = {
    {"read-only", "mount -t tmpfs -o ro tmpfs /tmp",
     "mkfifo /tmp/si5351, errno 30:Read-only file system --[", nullptr,
     "/tmp/fifo.json: Read-only file system"},
    {"full", "mount -t tmpfs -o size=8k tmpfs /tmp; head -c 20000 /dev/zero 2>&- >/tmp/filler",
     nullptr, "write /tmp/si5351.txt fail, errno 28:No space left on device --[",
     "/tmp/fifo.json: No space left on device"},
    {"links", "mount -t tmpfs tmpfs /tmp && ln -s of_somebody /tmp/fifo.json"
              " && ln -s of_somebody /tmp/si5351.txt",
     nullptr, "open /tmp/si5351.txt fail, errno 40:Too many levels of symbolic links --[", nullptr},
};
// clang-format on

/* The service's output lies on the covered /tmp, where its descriptor still leads. */
TEST(FileFaults, TheServiceGoesOnAndRecovers)
{
    if (unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "the kernel refuses a mount namespace";
    const std::string home = "/mnt";
    ASSERT_EQ(mount("tmpfs", home.c_str(), "tmpfs", 0, ""), 0);
    setenv("SI5351_SIM_REGISTERS", (home + "/regs").c_str(), 1);
    const int supervisor = open_supervisor(home + "/notify");
    const std::string program = home + "/si5351_app_sim"; // the checkout may lie below /tmp
    std::filesystem::copy_file(SI5351_APP_SIM, program);
    for (const auto &fault : tmp_faults) {
        SCOPED_TRACE(fault.name);
        (void)system(fault.make); // NOLINT(cert-env33-c): a fixed text
        const SERVICE_PROCESS_T process = start_service(program, home);
        const int client = open_client();
        await_output(process, "CLK2 runs at 6144028.14 Hz");
        await_message(supervisor, "STATUS=waiting for its port; register writes failed: 0 at");
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
        EXPECT_EQ(fetch_dump(client), model_dump(model));
        EXPECT_EQ(read_file(STATUS), fault.told == nullptr ? model_status(model) : "");
        EXPECT_NE(access("/tmp/fifo.json", F_OK), 0);
        if (fault.told != nullptr)
            await_message(supervisor, "STATUS=serving; register writes failed: 0 at the start, 0 "
                                      "since; status file not written: " +
                                          std::string(fault.told) + "\nWATCHDOG=1");
        EXPECT_EQ(read_file("/tmp/of_somebody"), "");
        sleep(1);
        EXPECT_LT(cpu_ticks(process.pid) - before, 50) << "spins";

        ASSERT_EQ(umount2("/tmp", MNT_DETACH), 0);
        send_words(client, {0x1238, 1, 7, 7});
        EXPECT_EQ(fetch_dump(client), model_dump(model));
        EXPECT_EQ(read_file(STATUS), model_status(model));
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
