/* The command service as a running process over the simulated chip, driven by real datagrams. */
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/engine_model.h"
#include "tests/service_process.h"

static constexpr const char *STATUS = "/tmp/genlock.json";

using Service = RUNNING_SERVICE_T;

TEST_F(Service, EchoesASetParamAndMovesTheClock)
{
    EXPECT_EQ(read_file(STATUS), "") << "written before the first report";
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
    // One byte only: the rest of the code is what the dump left there, and so is its channel, 1.
    send_bytes(client, "\x35");
    await_output(process, " ch:1 cmd:0x1235-increase --[vx_si5351:");
}

TEST_F(Service, DropsWhatIsTooLargeAndNothingBehindIt)
{
    send_bytes(client, std::string(2000, 'x'));
    command(0x1236, 3);
    send_bytes(client, "");
    send_bytes(client, std::string(65, 'x'));
    command(0x1236, 3);
    expect_agreement();
    await_output(process, "socket buffer len[65] > bufSize[64] error\n");
    await_output(process, "socket buffer len[2000] > bufSize[64] error\n");
}

/* So a set-param waits 30 ms for each dump before it, and for none behind it. */
TEST_F(Service, ASetParamWaitsForTheDumpsBeforeItOnly)
{
    for (const uint32_t cmd : {0x1239U, 0x1239U, 0x1234U, 0x1239U})
        send_words(client, {cmd, 2, 44100, 0});
    std::string replies;
    for (int reply = 0; reply < 8; reply++)
        replies += receive_reply(client);
    EXPECT_EQ(replies, model_dump(model) + model_dump(model));
    EXPECT_EQ(receive_reply(client).size(), 64U);
    apply_command(&model, 0x1234, 2, 44100, 0);
    EXPECT_EQ(receive_reply(client), "5351 info\n");
}

/* A random sender and typist. */
struct RANDOM_T {
    std::mt19937 numbers{20240229};
    uint32_t held[16] = {}; // what the receive buffer of the service holds
    bool leans_up = false;  // most trims go one way, so that the ends of the range are reached
};

static const uint32_t any_rates[] = {44100, 48000, 88200, 96000, 176400, 192000, 48000, 12345};

static uint32_t below(RANDOM_T *random, uint32_t limit)
{
    return static_cast<uint32_t>(random->numbers()) % limit;
}

/* Any length and content, most of them close to a command; with sync one that is answered. */
static std::string make_datagram(RANDOM_T *random, bool sync)
{
    const uint32_t trim = below(random, 8) < (random->leans_up ? 6U : 2U) ? 0x1235 : 0x1236;
    const uint32_t others[] = {0x1233, 0x1234, 0x1237, 0x1237, 0x1238, 0x1238, 0x1240};
    uint32_t words[16] = {trim, below(random, 5), any_rates[below(random, 8)], below(random, 5000)};
    if (below(random, 3) == 0) words[0] = others[below(random, 7)];
    if (below(random, 16) == 0) words[0] = below(random, UINT32_MAX);
    if (below(random, 16) == 0) words[1] = below(random, UINT32_MAX);
    if (below(random, 16) == 0) words[3] = below(random, UINT32_MAX);
    if (sync) words[0] = 0x1234;
    const bool plain = sync || below(random, 4) > 0;
    std::string bytes(reinterpret_cast<const char *>(words), sizeof(words));
    bytes.resize(plain ? 12 + below(random, 53) : below(random, 70), 'z');
    return bytes;
}

/* Sends it and takes the echo, if it completes what the buffer holds to a set-param. */
static void send_datagram(RANDOM_T *random, int client, MODEL_T *model, const std::string &bytes)
{
    send_bytes(client, bytes);
    const auto &held = random->held;
    if (bytes.empty() || bytes.size() > sizeof(held)) return;
    memcpy(random->held, bytes.data(), bytes.size());
    apply_command(model, held[0], static_cast<int32_t>(held[1]), static_cast<int32_t>(held[2]),
                  static_cast<int32_t>(held[3]));
    const std::string echo(reinterpret_cast<const char *>(held), sizeof(held));
    for (std::string reply; held[0] == 0x1234 && reply != echo;) { // those of a dump come first
        reply = receive_reply(client);
        ASSERT_NE(reply, "") << "no echo";
    }
}

static void send_known(RANDOM_T *random, int client, MODEL_T *model, const uint32_t (&words)[4])
{
    send_datagram(random, client, model, {reinterpret_cast<const char *>(words), sizeof(words)});
}

/* Types a text, and waits for the dump that follows it: the console takes them in order. */
static void type_and_compare(const std::string &text, const MODEL_T &model)
{
    type_text(text);
    std::ofstream("/tmp/si5351.txt") << std::string(4096, 'x'); // none of it may be left
    type_text("dump\n");
    const std::string wanted = model_text_dump(model);
    for (int poll = 0; poll < 20000 && read_file("/tmp/si5351.txt") != wanted; poll++)
        usleep(1000);
    ASSERT_EQ(read_file("/tmp/si5351.txt"), wanted) << text;
}

static void use_console(RANDOM_T *random, MODEL_T *model)
{
    static const char *const words[] = {"init", "inc", "dec", "rst", "step", "no", "yes", "yes"};
    const uint32_t word = below(random, 8);
    const uint32_t row = below(random, 6);
    const uint32_t first = word == 4 ? any_rates[row] : 1 + below(random, 3);
    const uint32_t second = word == 4 ? 1 + below(random, 2000) : any_rates[row];
    if (word < 4)
        apply_typed(model, 0x1234 + word, static_cast<int32_t>(first),
                    static_cast<int32_t>(second));
    if (word == 4) model->steps[row] = static_cast<int32_t>(second);
    if (word > 4) model->enabled = word > 5;
    type_and_compare(std::string(words[word]) + " " + std::to_string(first) + " " +
                         std::to_string(second) + "\n",
                     *model);
}

/* Pages of memory and descriptors of a process. */
static std::pair<long, long> measure(pid_t pid)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::filesystem::directory_iterator descriptors(folder + "/fd");
    const std::string pages = read_file(folder + "/statm");
    return {std::stol(pages.substr(pages.find(' '))),
            std::distance(begin(descriptors), end(descriptors))};
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr long GROWTH_LIMIT_PAGES = 1 << 18; // a sanitizer keeps freed memory for a while
#else
static constexpr long GROWTH_LIMIT_PAGES = 64; // those that the heap first touches late
#endif

/* What 500 datagrams and one text in the pipe leave behind. */
static void run_round(RANDOM_T *random, int client, MODEL_T *model)
{
    for (int datagram = 0; datagram < 500; datagram++)
        send_datagram(random, client, model, make_datagram(random, datagram % 50 == 49));
    send_known(random, client, model, {0x1234, 9, 0, 0}); // its echo: what came before is done
    use_console(random, model);
}

/* On a bus that fails in every fourth round; RANDOM_ROUNDS in the environment says how many, for a
 * run of hours. */
TEST_F(Service, AgreesWithTheModelWhateverIsSentOrTyped)
{
    static const SIM_FAULTS_T faults[] = {
        {0, 1, 0, 0}, {0, 0, 0, 0, 3}, {1, 0, 5, 0}, {0, 0, 0, 20}};
    const char *wanted = getenv("RANDOM_ROUNDS");
    const long rounds = wanted != nullptr ? strtol(wanted, nullptr, 10) : 200;
    SIM_FILE_T *chip = map_chip_file();
    ASSERT_NE(chip, nullptr);
    RANDOM_T random;
    std::pair<long, long> before;
    for (long round = 0; round < rounds && !HasFailure(); round++) {
        if (round == rounds / 2) before = measure(process.pid);
        random.leans_up = round % 8 < 4;
        const bool faulty = round % 4 == 3;
        if (faulty) chip->faults = faults[round / 4 % 4];
        run_round(&random, client, &model);
        chip->faults = {};
        for (int ch = 1; faulty && ch <= 3; ch++) { // heals what the faults left
            apply_typed(&model, 0x1234, ch, 96000);
            type_and_compare("init " + std::to_string(ch) + " 96000\n", model);
        }
        send_known(&random, client, &model, {0x1238, 1, INT32_MAX + 1U, INT32_MAX});
        send_known(&random, client, &model, {0x1234, 9, 0, 0});
        EXPECT_EQ(read_file(STATUS), model_status(model));
        EXPECT_NE(access("/tmp/fifo.json", F_OK), 0);
        EXPECT_EQ(chip_registers(), model_registers(model));
        (void)truncate(process.output.c_str(), 0); // one round of log is enough
    }
    const auto after = measure(process.pid);
    EXPECT_LE(after.first - before.first, GROWTH_LIMIT_PAGES) << "pages of memory";
    EXPECT_EQ(after.second, before.second) << "descriptors";
    expect_agreement();
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

    for (const int end : {SIGKILL, SIGTERM}) {
        kill(process.pid, end);
        waitpid(process.pid, &status, 0);
        EXPECT_EQ(WTERMSIG(status), end);
        EXPECT_EQ(access("/tmp/si5351", F_OK) == 0, end == SIGKILL) << "the pipe goes if it can";
        process = start_service(SI5351_APP_SIM); // whatever the first has left
        await_port();
    }
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
