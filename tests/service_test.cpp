/* The command service as a running process over the simulated chip, driven by real datagrams. */
#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/engine_model.h"
#include "tests/service_process.h"

using Service = RUNNING_SERVICE_T;

TEST_F(Service, EchoesASetParamAndMovesTheClock)
{
    send_words(client, {0x1234, 2, 44100});
    const std::string echo = receive_reply(client);
    ASSERT_EQ(echo.size(), 64U);
    EXPECT_EQ(echo.substr(0, 12), std::string("\x34\x12\0\0\x02\0\0\0\x44\xAC\0\0", 12));
    EXPECT_EQ(echo.substr(12), std::string(52, '\0'));
    await_output(process, "INFO] CLK1 runs at 5644835.93 Hz");
    await_output(process, "INFO] set param ch:2 rate:44100 --[vx_si5351:");
    sockaddr_in own = {};
    socklen_t size = sizeof(own);
    getsockname(client, reinterpret_cast<sockaddr *>(&own), &size);
    await_output(process, "recv from 127.0.0.1:" + std::to_string(ntohs(own.sin_port)) +
                              " ch:2 cmd:0x1234-set param --[vx_si5351:");
    apply_command(&model, 0x1234, 2, 44100, 0);
    expect_agreement();
}

TEST_F(Service, ObeysEveryCommandAndRefusesTheRest)
{
    for (int step = 0; step < 25; step++)
        command(0x1235, 3);
    await_output(process, "mclk is max, count:-24 --[vx_si5351:");
    expect_agreement();
    for (const uint32_t cmd : {0x1236U, 0x1236U, 0x1237U})
        command(cmd, 3);
    command(0x1236, 1);
    command(0x1235, 1); // learns a centre
    for (const int32_t ch : {0, 4, -1, INT32_MIN, INT32_MAX}) {
        for (uint32_t cmd = 0x1234; cmd <= 0x1238; cmd++)
            command(cmd, ch, 48000, 5);
    }
    for (const int32_t rate : {0, 32000, -48000, 48001}) {
        command(0x1234, 2, rate);
        command(0x1235, 2);
        command(0x1237, 2);
    }
    await_output(process, "set 5351 conf err, ret:-1 --[vx_si5351:", 9);
    expect_agreement();
    for (const int32_t rate : {44100, 48000, 88200, 96000, 176400, 192000}) {
        command(0x1234, 2, rate);
        command(0x1236, 2);
        expect_agreement();
    }
}

TEST_F(Service, ReportsRewriteTheStatusFile)
{
    EXPECT_EQ(read_file("/tmp/genlock.json"), "");
    const struct {
        int32_t ch, size, fill;
    } reports[] = {{1, 4096, 1024}, {7, 1, 1}, {3, INT32_MIN, -5}, {2, 2, INT32_MAX}};
    for (const auto &report : reports) {
        command(0x1238, report.ch, report.size, report.fill);
        const std::string reported = model_status(model);
        command(0x1236, 2); // shows with the next report only
        EXPECT_EQ(fetch_dump(client), model_dump(model));
        EXPECT_EQ(read_file("/tmp/genlock.json"), reported);
        EXPECT_NE(access("/tmp/fifo.json", F_OK), 0);
    }
}

TEST_F(Service, UnknownCodesAndDumpsShowTheHeldChannel)
{
    command(0x1235, 2);
    const std::string held = " ch:2 cmd:";
    send_words(client, {0x1240, 3});
    await_output(process, "ERROR] unknown cmd:0x1240 --[vx_si5351:");
    await_output(process, held + "0x1240-unknonw --[vx_si5351:");
    const auto started = std::chrono::steady_clock::now();
    send_words(client, {0x1239, 1});
    await_output(process, held + "0x1239-dump --[vx_si5351:");
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(30))
        << "lines are 10 ms apart";
    for (int datagram = 0; datagram < 4; datagram++)
        receive_reply(client);
    // One byte only: the rest of the code is what the dump left there, and so is its channel, 1.
    send_bytes(client, "\x35");
    await_output(process, " ch:1 cmd:0x1235-increase --[vx_si5351:");
    apply_command(&model, 0x1235, 1, 0, 0);
    // 6 bytes: code and the low half of the channel; above it 0.
    send_bytes(client, std::string("\x36\x12\0\0\x02\0", 6));
    apply_command(&model, 0x1236, 2, 0, 0);
    expect_agreement();
}

TEST_F(Service, TakesEveryLengthUpTo64Bytes)
{
    std::string request("\x34\x12\0\0\x03\0\0\0\x80\xBB\0\0", 12);
    command(0x1234, 3, 48000); // what a short datagram leaves standing
    request.resize(2000, 'x');
    for (size_t length = 0; length <= 70; length++) {
        send_bytes(client, request.substr(0, length));
        if (length == 0 || length > 64) continue;
        const std::string echo = receive_reply(client);
        EXPECT_EQ(echo.size(), 64U) << length;
        EXPECT_EQ(echo.substr(0, length), request.substr(0, length)) << length;
    }
    // One too large, straight behind an empty one, and valid ones between.
    send_bytes(client, request);
    command(0x1236, 3);
    send_bytes(client, "");
    send_bytes(client, request.substr(0, 65));
    command(0x1236, 3);
    expect_agreement();
    await_output(process, "socket buffer len[65] > bufSize[64] error\n", 2);
    await_output(process, "socket buffer len[2000] > bufSize[64] error\n");
}

/* 100,000 datagrams of any length and content, most of them close to a command; every 50th asks for
 * an echo, so that none is lost to a full socket buffer. */
TEST_F(Service, AgreesWithTheCalculationAfter100000RandomDatagrams)
{
    std::mt19937 random(20240229);
    const auto any = [&] { return static_cast<uint32_t>(random()); };
    const auto below = [&](uint32_t limit) { return any() % limit; };
    static const uint32_t rates[] = {44100, 48000, 88200, 96000, 176400, 192000, 48000, 12345};
    uint32_t held[16] = {}; // the receive buffer of the service
    for (int datagram = 0; datagram < 100000; datagram++) {
        const bool sync = datagram % 50 == 49;
        uint32_t words[16] = {0x1233 + below(6), below(5), rates[below(8)], below(5000)};
        if (words[0] == 0x1234 && !sync && below(8) > 0) words[0]++; // trims between rate changes
        if (below(16) == 0) words[0] = any();
        if (below(16) == 0) words[1] = any();
        if (sync) words[0] = 0x1234;
        const size_t length = sync || below(4) > 0 ? 12 + below(53) : below(70);
        std::string bytes(reinterpret_cast<const char *>(words), sizeof(words));
        bytes.resize(length, 'z');
        if (length <= 64) memcpy(held, bytes.data(), length);
        // A short one may complete to a command that answers; its reply is drained below.
        send_bytes(client, bytes);
        if (length == 0 || length > 64) continue;
        apply_command(&model, held[0], static_cast<int32_t>(held[1]), static_cast<int32_t>(held[2]),
                      static_cast<int32_t>(held[3]));
        while (held[0] == 0x1234) {
            const std::string reply = receive_reply(client);
            ASSERT_NE(reply, "") << "datagram " << datagram;
            if (reply == std::string(reinterpret_cast<const char *>(held), 64)) break;
        }
    }
    command(0x1238, 1, 10, 5);
    expect_agreement();
    EXPECT_EQ(read_file("/tmp/genlock.json"), model_status(model));
}

/* Threads by name, the first one as main, with how often each has gone to sleep so far. */
static std::map<std::string, long> count_sleeps(pid_t pid)
{
    std::map<std::string, long> sleeps;
    const std::string process = "/proc/" + std::to_string(pid);
    const std::string own = read_file(process + "/comm");
    for (const auto &entry : std::filesystem::directory_iterator(process + "/task")) {
        const std::string status = read_file(entry.path() / "status");
        const std::string key = "\nvoluntary_ctxt_switches:";
        const std::string name = read_file(entry.path() / "comm");
        const bool main = entry.path().filename() == std::to_string(pid);
        if (name == own && !main) continue; // of the sanitizer or emulator that it runs under
        sleeps[main ? "main\n" : name] = std::stol(status.substr(status.find(key) + key.size()));
    }
    return sleeps;
}

TEST_F(Service, SleepsBetweenItsWaits)
{
    const long ticks = cpu_ticks(process.pid);
    const auto before = count_sleeps(process.pid);
    sleep(6);
    const auto after = count_sleeps(process.pid);
    ASSERT_EQ(after.size(), 3U);
    const auto wakes = [&](const char *name) { return after.at(name) - before.at(name); };
    EXPECT_EQ(wakes("debug_task\n"), 0) << "woke without a command";
    EXPECT_LE(wakes("si5351_clk\n"), 4) << "waits are 2 s long";
    EXPECT_LE(wakes("main\n"), 2) << "sleeps are 5 s long";
    EXPECT_LE(cpu_ticks(process.pid) - ticks, 5) << "spins";
    await_output(process, "INFO] audio debug_task id ");
}

TEST(ServiceStart, GoesOnWithoutBusAndLoggingFile)
{
    if (access("/dev/i2c-1", F_OK) == 0) GTEST_SKIP() << "this machine has the bus";
    const SERVICE_PROCESS_T process = start_service(SI5351_APP);
    const int client = open_client();
    await_output(process, "Unable to open i2c control file:/dev/i2c-1 --[vx_si5351:", 104);
    await_port();
    EXPECT_EQ(fetch_dump(client), model_dump(MODEL_T{}));
    const std::string output = read_output(process);
    EXPECT_EQ(output.find("logging file /config/logconf/si5351_app.conf: "), 0U) << output;
    EXPECT_LT(output.find("INFO]  audio vx_si5351_start2 startup --[main:"), output.find("ERROR]"));
    const size_t failed = output.find("Unable to send data --[vx_si5351:");
    EXPECT_LT(output.find("Unable to open i2c control file"), failed);
    EXPECT_LT(failed, output.find("I2c_Write Failed at addr=[0x60]\n --[vx_si5351:"));
    close(client);
    stop_service(process);
}

TEST_F(Service, ASecondInstanceEndsBeforeItTouchesTheChip)
{
    command(0x1234, 2, 44100);
    type_text("\n"); // waits until the console reads
    const SERVICE_PROCESS_T second = start_service(SI5351_APP_SIM, "/tmp", {"--version"});
    int status = 0;
    ASSERT_EQ(waitpid(second.pid, &status, 0), second.pid);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(read_output(second).find("a service is running already, it reads /tmp/si5351\n"),
              std::string::npos);
    expect_agreement();
}

TEST(ServiceStart, WaitsForItsPort)
{
    const int squatter = open_client();
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(11000);
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(squatter, reinterpret_cast<sockaddr *>(&own), sizeof(own)), 0);
    const SERVICE_PROCESS_T process = start_service(SI5351_APP_SIM);
    const time_t started = time(nullptr);
    await_output(process, "ERROR] bind socket<127.0.0.1:11000> err --[vx_si5351:", 3);
    EXPECT_GE(time(nullptr) - started, 3) << "two pauses of 2 s lie between three attempts";
    close(squatter);
    const int client = open_client();
    await_port();
    EXPECT_EQ(fetch_dump(client), model_dump(MODEL_T{}));
    close(client);
    stop_service(process);
}
