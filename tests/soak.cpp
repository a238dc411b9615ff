/* A long run of the service under everything at once: three clients, a console user, a reader of
 * the status file, and a bus that fails at times. Each client has a channel of its own, so whatever
 * the order in which the service takes their commands, what a channel must come to is known.
 * Clients are threads: to the service, a socket is a client, and a restarted client is a new
 * socket.
 *
 * SOAK_COMMANDS in the environment is the least number of commands. */
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "sim/i2c_bus_sim.h"
#include "tests/engine_model.h"
#include "tests/service_process.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr long GROWTH_LIMIT_KIB = 1 << 20; // a sanitizer keeps freed memory for a while
#else
static constexpr long GROWTH_LIMIT_KIB = 256; // pages that the heap first touches late
#endif
static constexpr int ROUND_COMMANDS = 5000; // of each client
static constexpr int BURST_LIMIT = 40;      // three of these fit the socket's buffer
static constexpr int WARM_ROUNDS = 2;       // a healthy one and one with faults
static constexpr const char *STATUS = "/tmp/genlock.json";
static constexpr const char *TEXT_DUMP = "/tmp/si5351.txt";
static const int32_t rates[] = {44100, 48000, 88200, 96000, 176400, 192000};

struct CLIENT_T {
    int32_t ch;
    std::mt19937 random;
    int sock;
    MODEL_T model;                    // only its own channel counts
    std::deque<std::string> expected; // replies to come, in order; empty: of any content
    long commands;
    int starts;
};

static SIM_FILE_T *chip;
static bool faulty;              // the bus fails in this round: registers may be out of date
static std::mutex console_mutex; // one command a write, one write at a time

static uint32_t below(CLIENT_T *client, uint32_t limit)
{
    return static_cast<uint32_t>(client->random()) % limit;
}

static std::string registers_text(int first, int count)
{
    std::string text;
    for (int reg = first; reg < first + count; reg++) {
        char byte[8];
        (void)snprintf(byte, sizeof(byte), "%s%02X", reg > first ? " " : "",
                       __atomic_load_n(&chip->registers[reg], __ATOMIC_RELAXED));
        text += byte;
    }
    return text;
}

/* Part number index of a text, from the separator before it up to the next one. */
static std::string cut_part(const std::string &text, char separator, int index)
{
    size_t start = 0;
    for (int i = 0; i < index && start != std::string::npos; i++)
        start = text.find(separator, start + (i > 0 ? 1 : 0));
    if (start == std::string::npos) return "";
    return text.substr(start, text.find(separator, start + 1) - start);
}

static void send_command(CLIENT_T *client, uint32_t cmd, int32_t ch, uint32_t arg0, uint32_t arg1)
{
    const std::vector<uint32_t> words = {
        cmd, static_cast<uint32_t>(ch), arg0, arg1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    send_words(client->sock, words);
    client->commands++;
    apply_command(&client->model, cmd, ch, static_cast<int32_t>(arg0), static_cast<int32_t>(arg1));
    if (cmd == 0x1234)
        client->expected.emplace_back(reinterpret_cast<const char *>(words.data()), 64);
    if (cmd != 0x1239) return;
    for (int i = 0; i <= 3; i++) {
        const std::string own = cut_part(model_dump(client->model), '\n', i) + "\n";
        const bool known = i == 0 || i == client->ch;
        client->expected.push_back(!known ? "" : own.substr(i > 0 ? 1 : 0));
    }
}

static void send_random_command(CLIENT_T *client)
{
    const uint32_t dice = below(client, 2000);
    const int32_t ch = client->ch;
    if (dice == 0) return send_command(client, 0x1239, 0, 0, 0);
    if (dice < 10) return send_command(client, 0x1240 + dice, ch, dice, 0);
    if (dice < 12) return send_command(client, 0x1234, ch, 32000 + dice, 0); // refused
    if (dice < 25) {
        const auto rate = static_cast<uint32_t>(rates[below(client, 6)]);
        return send_command(client, 0x1234, ch, rate, 0);
    }
    if (dice < 200) return send_command(client, 0x1238, ch, below(client, 1 << 20), dice);
    if (dice < 300) return send_command(client, 0x1237, ch, 0, 0);
    // Leans one way for some time, so that ends of the range and the way back are reached.
    const bool up = below(client, 8) < (client->commands / 200 % 2 == 0 ? 6U : 2U);
    send_command(client, up ? 0x1235 : 0x1236, ch, 0, 0);
}

static void take_replies(CLIENT_T *client)
{
    for (; !client->expected.empty(); client->expected.pop_front()) {
        const std::string reply = receive_reply(client->sock);
        ASSERT_NE(reply, "") << "channel " << client->ch << ": a reply is missing";
        if (client->expected.front().empty()) continue;
        ASSERT_EQ(reply, client->expected.front()) << "channel " << client->ch;
    }
}

/* The echo of a set-param that changes nothing tells that all before it is done. */
static void expect_agreement(CLIENT_T *client)
{
    send_command(client, 0x1238, client->ch, below(client, 5000), below(client, 5000));
    send_command(client, 0x1234, 9, 0, 0);
    take_replies(client);
    const int ch = client->ch;
    EXPECT_EQ(cut_part(read_file(STATUS), '{', ch + 2),
              cut_part(model_status(client->model), '{', ch + 2));
    if (faulty) return;
    const auto at = static_cast<size_t>(ch - 1) * 24;
    EXPECT_EQ(registers_text(34 + 8 * ch, 8), model_registers(client->model).substr(at, 23)) << ch;
}

/* Each start has a port of its own: an answer to a client that is gone must not reach the next. */
static void start_client(CLIENT_T *client)
{
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port =
        htons(static_cast<uint16_t>(20000 + 1000 * client->ch + client->starts++ % 1000));
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    client->sock = open_client();
    EXPECT_EQ(bind(client->sock, reinterpret_cast<sockaddr *>(&own), sizeof(own)), 0);
}

static void restart(CLIENT_T *client)
{
    send_command(client, 0x1234, client->ch, 48000, 0);
    close(client->sock); // before the echo is there
    client->expected.clear();
    start_client(client);
}

/* Moves the client's channel by the console. The record's status tells when that is done, so it
 * must be another one before. */
static void use_console(CLIENT_T *client)
{
    static const struct {
        const char *word;
        uint32_t cmd;
    } commands[] = {{"inc", 0x1235}, {"dec", 0x1236}, {"rst", 0x1237}, {"init", 0x1234}};
    const auto &command = commands[below(client, 4)];
    send_command(client, command.cmd == 0x1236 ? 0x1235 : 0x1236, client->ch, 0, 0);
    expect_agreement(client);

    const int32_t rate = rates[below(client, 6)];
    {
        const std::lock_guard<std::mutex> lock(console_mutex);
        type_text(std::string(command.word) + " " + std::to_string(client->ch) + " " +
                  std::to_string(rate) + "\n");
    }
    apply_command(&client->model, command.cmd, client->ch, rate, 0);
    const std::string wanted = cut_part(model_dump(client->model), '\n', client->ch);
    for (int poll = 0; poll < 200; poll++) {
        if (cut_part(fetch_dump(client->sock), '\n', client->ch) == wanted) return;
    }
    FAIL() << command.word << " of channel " << client->ch << " is not done";
}

static void run_client(CLIENT_T *client)
{
    send_command(client, 0x1234, client->ch, 44100, 0); // also heals what the faults left
    const long end = client->commands + ROUND_COMMANDS;
    while (client->commands < end && !testing::Test::HasFailure()) {
        for (uint32_t burst = 1 + below(client, BURST_LIMIT); burst > 0; burst--)
            send_random_command(client);
        if (below(client, 50) == 0) restart(client);
        expect_agreement(client);
        if (below(client, 200) == 0) use_console(client);
    }
}

static int32_t find_number(const std::string &text, const std::string &key)
{
    const size_t at = text.find(key);
    if (at == std::string::npos) return 0;
    return static_cast<int32_t>(strtol(text.c_str() + at + key.size(), nullptr, 10));
}

/* Every text that the file ever holds is whole: made again from its numbers, it is the same. */
static void read_status_file(const std::atomic<bool> *done)
{
    while (!*done) {
        usleep(1000);
        const std::string text = read_file(STATUS);
        if (text.empty()) continue; // none before the first report
        MODEL_T seen;
        for (int ch = 1; ch <= 3; ch++) {
            const std::string part = cut_part(text, '{', ch + 2);
            MODEL_CHANNEL_T &c = seen.channels[ch - 1];
            c.fifo_size = find_number(part, "\"fifoTotal\":");
            c.fifo_fill = find_number(part, "\"fifoUsed\":");
            c.value = find_number(part, "\"ppmAdjusted\":");
        }
        ASSERT_EQ(text, model_status(seen));
    }
}

static void set_faults(const SIM_FAULTS_T &wanted)
{
    __atomic_store_n(&chip->faults.absent, wanted.absent, __ATOMIC_RELAXED);
    __atomic_store_n(&chip->faults.silent, wanted.silent, __ATOMIC_RELAXED);
    __atomic_store_n(&chip->faults.fail_in, wanted.fail_in, __ATOMIC_RELAXED);
    __atomic_store_n(&chip->faults.delay_us, wanted.delay_us, __ATOMIC_RELAXED);
    __atomic_store_n(&chip->faults.fail_every, wanted.fail_every, __ATOMIC_RELAXED);
}

static void run_round(std::array<CLIENT_T, 3> *clients, int round)
{
    static const SIM_FAULTS_T faults[] = {
        {0, 1, 0, 0, 0}, {0, 0, 0, 0, 3}, {0, 0, 5, 0, 0}, {1, 1, 0, 0, 0}, {0, 0, 0, 100, 0}, {},
    };
    faulty = round % 2 == 1;
    std::atomic<int> running{3};
    std::vector<std::thread> threads;
    for (CLIENT_T &client : *clients) {
        threads.emplace_back([&] {
            run_client(&client);
            running--;
        });
    }
    for (size_t i = 0; running > 0; i++, usleep(5000)) {
        if (faulty) set_faults(faults[i % std::size(faults)]);
    }
    for (std::thread &thread : threads)
        thread.join();
    set_faults({});
    faulty = false;
}

/* The console works off its texts in order: the dump comes after what was typed before. */
static void expect_text_dump(const MODEL_T &model)
{
    (void)unlink(TEXT_DUMP);
    type_text("dump\n");
    for (int poll = 0; poll < 2000 && read_file(TEXT_DUMP) != model_text_dump(model); poll++)
        usleep(10000);
    ASSERT_EQ(read_file(TEXT_DUMP), model_text_dump(model));
}

/* With the clients at rest: a rate change on every channel, then all must agree. After it the
 * console sets a trim step, and shows that it can keep the datagrams from the chip. */
static void check_round(std::array<CLIENT_T, 3> *clients, int round)
{
    static const int32_t steps[] = {1200, 600, 160, 1000, 777, 200};
    MODEL_T all = clients->front().model;
    for (CLIENT_T &client : *clients) {
        send_command(&client, 0x1234, client.ch, 96000, 0);
        for (int step = round % 24; step > 0; step--)
            send_command(&client, 0x1234 + static_cast<uint32_t>(client.ch), client.ch, 0, 0);
        expect_agreement(&client);
        all.channels[client.ch - 1] = client.model.channels[client.ch - 1];
    }
    CLIENT_T &client = clients->front();
    EXPECT_EQ(fetch_dump(client.sock), model_dump(all));
    EXPECT_EQ(registers_text(42, 24), model_registers(all));
    expect_text_dump(all);
    EXPECT_EQ(count_drops(), 0) << "a burst was too large for the buffer";

    const auto row = static_cast<size_t>(round) % std::size(rates);
    all.steps[row] = steps[static_cast<size_t>(round) / std::size(rates) % std::size(steps)];
    type_text("step " + std::to_string(rates[row]) + " " + std::to_string(all.steps[row]) + "\n");
    type_text("no\n");
    expect_text_dump(all);
    send_words(client.sock, {0x1236, 1, 0, 0});
    send_words(client.sock, {0x1234, 2, 44100, 0});
    receive_reply(client.sock);
    fetch_dump(client.sock); // both are done
    all.channels[0].status = 0x1236;
    all.channels[1].status = 0x1234;
    type_text("yes\n");
    expect_text_dump(all);
    EXPECT_EQ(registers_text(42, 24), model_registers(all));
    for (CLIENT_T &each : *clients)
        each.model = all;
}

struct RESOURCES_T {
    long memory_kib;
    long descriptors;
};

static RESOURCES_T measure(pid_t pid)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::string status = read_file(folder + "/status");
    const std::filesystem::directory_iterator descriptors(folder + "/fd");
    return {std::stol(status.substr(status.find("\nVmRSS:") + 7)),
            std::distance(begin(descriptors), end(descriptors))};
}

TEST(Soak, AgreesWithTheCalculationAllTheWay)
{
    const char *wanted = getenv("SOAK_COMMANDS");
    const long goal = wanted != nullptr ? strtol(wanted, nullptr, 10) : 4L * 3 * ROUND_COMMANDS;
    const SERVICE_PROCESS_T process = start_service(SI5351_APP_SIM);
    await_output(process, "CLK2 runs at 6144028.14 Hz");
    await_port();
    chip = map_chip_file();
    ASSERT_NE(chip, nullptr);
    const std::string low_registers = registers_text(0, 42);
    const std::string high_registers = registers_text(66, 190);

    std::array<CLIENT_T, 3> clients = {};
    for (size_t i = 0; i < clients.size(); i++) {
        clients[i].ch = static_cast<int32_t>(i) + 1;
        clients[i].random.seed(static_cast<uint32_t>(i) + 20240229);
        start_client(&clients[i]);
    }
    std::atomic<bool> done{false};
    std::thread reader(read_status_file, &done);
    const auto start = std::chrono::steady_clock::now();
    RESOURCES_T before = {};
    long commands = 0;
    for (int round = 0; (commands < goal || round <= WARM_ROUNDS) && !HasFailure(); round++) {
        if (round == WARM_ROUNDS) before = measure(process.pid);
        run_round(&clients, round);
        if (!HasFailure()) check_round(&clients, round);
        commands = clients[0].commands + clients[1].commands + clients[2].commands;
        if (!HasFailure()) (void)truncate(process.output.c_str(), 0); // one round of log is enough
    }
    done = true;
    reader.join();
    const RESOURCES_T after = measure(process.pid);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    printf("%ld commands in %.0f s; memory %ld KiB, then %ld; descriptors %ld, then %ld\n",
           commands, taken.count(), before.memory_kib, after.memory_kib, before.descriptors,
           after.descriptors);

    EXPECT_EQ(registers_text(0, 42), low_registers);
    EXPECT_EQ(registers_text(66, 190), high_registers);
    EXPECT_LE(after.memory_kib, before.memory_kib + GROWTH_LIMIT_KIB);
    EXPECT_EQ(after.descriptors, before.descriptors);
    const std::string log = read_output(process);
    if (HasFailure())
        printf("%s\n", log.substr(log.size() - std::min<size_t>(log.size(), 4000)).c_str());
    stop_service(process);
}
