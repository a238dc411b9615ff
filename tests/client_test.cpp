/* The client calls on the wire and in the log, against a plain listener and the real service, and
 * the example that trims by its FIFO. Links nothing of the service: the library stands alone. */
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "service/si5351_client.h"
#include "tests/service_process.h"

using WORDS = std::vector<int32_t>; // of a datagram, in the machine's byte order
static const WORDS set_rate = {0x1234, 2, 44100};

static int bound_socket(uint16_t port)
{
    const int fd = open_client();
    const sockaddr_in own = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof(own)), 0);
    return fd;
}

static std::string to_bytes(const WORDS &words)
{
    return {reinterpret_cast<const char *>(words.data()), words.size() * 4};
}

static void send_lines(int from, int to, const std::vector<std::string> &lines)
{
    sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(getsockname(to, plain, &size), 0);
    for (const auto &line : lines)
        EXPECT_EQ(sendto(from, line.data(), line.size(), 0, plain, size),
                  static_cast<ssize_t>(line.size()));
}

static void answer(int from, int to, size_t length)
{
    send_lines(from, to, {std::string(length, 'x')});
}

static int elapsed_ms(std::chrono::steady_clock::time_point since)
{
    const auto passed = std::chrono::steady_clock::now() - since;
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count());
}

/* A client, a listener in the service's place, and what the calls log to their category. */
struct Client : testing::Test {
    Client()
    {
        capture_log();
        take_log();
    }
    ~Client() override
    {
        for (const int fd : {client, listener, stranger})
            close(fd);
    }
    int client = bound_socket(0);
    int listener = bound_socket(11000);
    int stranger = bound_socket(0);
};

TEST_F(Client, SendsItsBytesOrLogsWhyNot)
{
    // clang-format off
    static const struct { const char *name; int (*call)(int sock); WORDS words; } calls[] = {
        {"VX_SI5351_SET_PARAM", [](int s) { return send_set_param(s, 2, 44100); }, set_rate},
        {"VX_SI5351_SET_INC",   [](int s) { return set_increase(s, 2); },  {0x1235, 2, 0}},
        {"VX_SI5351_SET_DEC",   [](int s) { return set_decrease(s, -1); }, {0x1236, -1, 0}},
        {"VX_SI5351_SET_RESET", [](int s) { return set_reset(s, 9); },     {0x1237, 9, 0}},
        {"VX_FIFO_REPORT", [](int s) { return set_fifo_status(s, 1, 9, 2); },  {0x1238, 1, 9, 2}},
    };
    // clang-format on
    answer(stranger, client, 1); // whatever comes from wherever answers the set-param
    for (const auto &row : calls) {
        EXPECT_EQ(row.call(client), 0) << row.name;
        EXPECT_EQ(receive_reply(listener, 1000), to_bytes(row.words)) << row.name;
        EXPECT_EQ(row.call(-1), -1) << row.name;
        EXPECT_EQ(take_log(), LINES{"ERROR send " + std::string(row.name) +
                                    " to<127.0.0.1:11000> fd:-1 error:Bad file descriptor"});
    }
    ASSERT_EQ(dup2(client, 0), 0);
    EXPECT_EQ(send_set_param(0, 2, 44100), -1) << "an answer on descriptor 0 is never seen";
    EXPECT_EQ(receive_reply(client, 50), "") << "the answer was left where it was";
    EXPECT_EQ(receive_reply(listener, 50), "") << "sent more than once";
}

TEST_F(Client, SetParamSendsAgainEvery2sUntilItIsAnswered)
{
    std::thread service([this] {
        const auto start = std::chrono::steady_clock::now();
        for (int request = 0; request < 3; request++) {
            EXPECT_EQ(receive_reply(listener, 10000), to_bytes(set_rate));
            EXPECT_NEAR(elapsed_ms(start), request * 2000, 900) << request;
        }
        answer(listener, client, 64);
    });
    EXPECT_EQ(send_set_param(client, 2, 44100), 0);
    service.join();
    EXPECT_EQ(receive_reply(listener, 50), "") << "sent again after the answer";
    const std::string line = "ERROR get 5351 set param response timeout";
    EXPECT_EQ(take_log(), (LINES{line, line}));
}

/* A call must wait for the answer that comes 300 ms after its request, whatever was on the socket
 * before it (late answers), and leave nothing there. */
TEST_F(Client, SetParamIsNotAnsweredByWhatAnEarlierCallLeft)
{
    // clang-format off
    const struct { const char *fault; size_t late, size; int waiting, from; } rounds[] = {
        {"answers to resends end the next wait", 64,   64, 3, listener},
        {"an oversized late answer stays",       65,    1, 1, listener},
        {"an empty late answer stays",            0,   64, 1, listener},
        {"an oversized answer is left there",     0, 2000, 0, stranger},
        {"an empty answer takes a second one",    0,    0, 0, stranger},
    };
    // clang-format on
    for (const auto &round : rounds) {
        for (int i = 0; i < round.waiting; i++)
            answer(listener, client, round.late);
        std::thread service([&] {
            EXPECT_EQ(receive_reply(listener, 1000), to_bytes(set_rate)) << round.fault;
            usleep(300000);
            answer(round.from, client, round.size);
        });
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(send_set_param(client, 2, 44100), 0) << round.fault;
        EXPECT_GE(elapsed_ms(start), 250) << round.fault;
        service.join();
        char byte;
        EXPECT_LT(recv(client, &byte, 1, MSG_DONTWAIT), 0) << round.fault;
    }
    EXPECT_EQ(take_log(), LINES{});
}

static std::string listed_text(const SI5351_LISTED_T &listed)
{
    return std::to_string(listed.rate_hz) + " " + std::to_string(listed.value) + " " +
           listed.status;
}

TEST_F(Client, ListsOnlyWhatIsAWholeAnswerOfTheService)
{
    const std::string head = "5351 info\n";
    const std::string one = "ch:1 rate:48000 value:253600 status:set param\n";
    const std::string two = "ch:2 rate:32000 value:0 status:decrease\n";
    const std::string three = "ch:3 rate:192000 value:-2147483648 status:unknonw\n";
    const std::string stale = "ch:2 rate:44100 value:1 status:reset\n";
    // clang-format off
    const struct { const char *fault; std::vector<std::string> lines; int result; } rounds[] = {
        {"a line is misread",              {head, one, two, three}, 0},
        {"the order must be ours",         {head, three, two, one}, 0},
        {"an answer given up is mixed in", {head, one, stale, head, one, two, three}, 0},
        {"the end of one given up counts", {stale, three, head, one, two, three}, 0},
        {"an echo upsets it",              {std::string(64, '\0'), head, one, two, three}, 0},
        {"nonsense is taken for a line",
            {head, one, "ch:2 rate:44100", "ch:2 rate:44100 value:7 status:set param", stale + "x",
             "ch:2 rate:44100 value:7 status:set\033[2J\n", "ch:0 rate:1 value:7 status:reset\n",
             "ch:4 rate:1 value:7 status:reset\n", stale + std::string(1, '\0'), "",
             stale + std::string(900, '\n'), std::string(255, 'c'), two, three}, 0},
        {"a lost line is not missed",      {head, one, three}, -1},
        {"a lost heading is not missed",   {one, two, three}, -1},
    };
    // clang-format on
    for (const auto &round : rounds) {
        std::thread service([&] {
            EXPECT_EQ(receive_reply(listener, 1000), to_bytes({0x1239})) << round.fault;
            send_lines(stranger, client, {head, stale, one, three});
            send_lines(listener, client, round.lines);
        });
        SI5351_LISTED_T listed[SI5351_LISTED_COUNT] = {{1, 1, "a"}, {1, 1, "b"}, {1, 1, "c"}};
        EXPECT_EQ(list_channels(client, listed, 200), round.result) << round.fault;
        service.join();
        const bool whole = round.result == 0;
        EXPECT_EQ(listed_text(listed[0]), whole ? "48000 253600 set param" : "1 1 a");
        EXPECT_EQ(listed_text(listed[1]), whole ? "32000 0 decrease" : "1 1 b") << round.fault;
        EXPECT_EQ(listed_text(listed[2]), whole ? "192000 -2147483648 unknonw" : "1 1 c");
        EXPECT_EQ(take_log(), whole ? LINES{} : LINES{"ERROR get 5351 dump response timeout"});
    }
}

TEST_F(Client, CallsWithALimitEndWhenNothingGoodComes)
{
    std::atomic<bool> over = false;
    std::thread flood([&] {
        for (int i = 0; i < 2000 && !over; i++, usleep(500))
            send_lines(i % 2 == 0 ? listener : stranger, client, {"5351 info\n", "nonsense"});
    });
    const auto start = std::chrono::steady_clock::now();
    SI5351_LISTED_T listed[SI5351_LISTED_COUNT];
    EXPECT_EQ(list_channels(client, listed, 300), -1);
    EXPECT_EQ(set_param_within(client, 2, 44100, 300), -1);
    EXPECT_NEAR(elapsed_ms(start), 600, 200);
    over = true;
    flood.join();
    const std::string lost = "ERROR get 5351 dump response timeout";
    EXPECT_EQ(take_log(), (LINES{lost, "ERROR get 5351 set param response timeout"}));
    EXPECT_EQ(list_channels(0, listed, 300), -1) << "descriptor 0 cannot be waited for";
    take_log();
    EXPECT_EQ(set_param_within(-1, 2, 44100, 300), -1);
    EXPECT_EQ(take_log(), LINES{"ERROR send VX_SI5351_SET_PARAM to<127.0.0.1:11000> fd:-1 "
                                "error:Bad file descriptor"});
}

TEST_F(Client, SetParamWithinTellsWhatBecameOfTheRate)
{
    std::thread trimmer([this] { // a trim of another program comes between request and listing
        EXPECT_EQ(receive_reply(listener, 1000), to_bytes(set_rate));
        send_lines(listener, client, {to_bytes({0x1234, 2, 44100}) + std::string(52, 'x')});
        EXPECT_EQ(receive_reply(listener, 1000), to_bytes({0x1239}));
        send_lines(listener, client,
                   {"5351 info\n", "ch:1 rate:1 value:1 status:reset\n",
                    "ch:2 rate:44100 value:752400 status:increase\n",
                    "ch:3 rate:1 value:1 status:reset\n"});
    });
    EXPECT_EQ(set_param_within(client, 2, 44100, 1000), 0);
    trimmer.join();

    close(std::exchange(listener, -1));
    const SERVICE_PROCESS_T service = start_service(SI5351_APP_SIM);
    await_port();
    // clang-format off
    const struct { const char *fault, *text; int ch, rate, trims, result; } rows[] = {
        {"an accepted rate is refused",                "y", 2, 44100,  0, 0},
        {"an accepted rate is refused after a trim",   "y", 2, 44100,  1, 0},
        {"a refused rate is set",                      "y", 2, 32000,  0, 1},
        {"a rate refused twice is set",                "y", 2, 32000,  0, 1},
        {"a channel that is none is set",              "y", 4, 44100,  0, 1},
        {"switched off: the refused rate has gone",    "n", 2, 44100,  0, 1},
        {"switched off: another rate is set",          "n", 1, 192000, 0, 1},
        {"switched off: the centre is not where it is", "n", 1, 48000,  0, 0},
        {"switched off: an old trim is the centre",    "n", 3, 48000,  1, 1},
    };
    // clang-format on
    for (const auto &row : rows) {
        for (int i = 0; i < row.trims; i++)
            type_text("inc " + std::to_string(row.ch)); // reaches the chip at any time
        type_text(row.text);
        usleep(20000); // read, but perhaps not yet done
        EXPECT_EQ(set_param_within(client, row.ch, row.rate, 1000), row.result) << row.fault;
        const std::string refused = "ERROR set 5351 param refused ch:" + std::to_string(row.ch) +
                                    " rate:" + std::to_string(row.rate);
        EXPECT_EQ(take_log(), row.result == 1 ? LINES{refused} : LINES{}) << row.fault;
    }
    stop_service(service);
}

/* Real datagrams to the real service at the speed of life: from a source 200 ppm off a channel must
 * come within four steps. The numbers are the centre of the rate and its step. */
TEST(ClientOfService, TheExampleFollowsItsFifo)
{
    const SERVICE_PROCESS_T service = start_service(SI5351_APP_SIM);
    await_port();
    // clang-format off
    const struct { std::string ch, ppm, rate; int position, num, step; } rows[] = {
        {"1", "200", "48000", 12, 253600, 1200}, {"3", "-200", "88200", -24, 753700, 700}};
    // clang-format on
    std::vector<SERVICE_PROCESS_T> followers;
    for (const auto &row : rows)
        followers.push_back(start_service(FIFO_FOLLOWER, "/tmp", {row.ch, row.ppm, "8", row.rate}));
    const int client = open_client();
    for (const auto &row : rows) {
        const SERVICE_PROCESS_T &follower = followers[&row - rows];
        int status = -1;
        waitpid(follower.pid, &status, 0);
        const std::string output = read_output(follower);
        ASSERT_EQ(status, 0) << output;
        const int position = std::stoi(output.substr(output.rfind(" position ") + 10));
        EXPECT_NEAR(position, row.position, 4) << output;
        const int value = row.num - position * row.step;
        EXPECT_NE(fetch_dump(client).find("ch:" + row.ch + " rate:" + row.rate +
                                          " value:" + std::to_string(value) + " "),
                  std::string::npos)
            << output;
    }
    EXPECT_EQ(send_set_param(client, 9, 48000), 0) << "refused by the service, but received";
    close(client);
    stop_service(service);
}
