/* The client calls on the wire and in the log, against a plain listener and the real service, and
 * the example that trims by its FIFO. Links nothing of the service: the library stands alone. */
#include <arpa/inet.h>
#include <chrono>
#include <gtest/gtest.h>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "service/si5351_client.h"
#include "tests/service_process.h"

static const std::string set_rate_bytes("\x34\x12\0\0\x02\0\0\0\x44\xAC\0\0", 12); // 2, 44100

static int bound_socket(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(port);
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&own), sizeof(own)), 0);
    return fd;
}

static sockaddr_in address_of(int fd)
{
    sockaddr_in own = {};
    socklen_t size = sizeof(own);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size), 0);
    return own;
}

static void answer(int from, int to, size_t length)
{
    const std::string bytes(length, 'x');
    const sockaddr_in address = address_of(to);
    EXPECT_EQ(sendto(from, bytes.data(), length, 0, reinterpret_cast<const sockaddr *>(&address),
                     sizeof(address)),
              static_cast<ssize_t>(length));
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
        auto *layout = new log4cpp::PatternLayout();
        layout->setConversionPattern("%p %m%n");
        auto *appender = new log4cpp::OstreamAppender("capture", &log);
        appender->setLayout(layout);
        log4cpp::Category::getInstance("CATEGORY").setAppender(appender);
    }
    ~Client() override
    {
        log4cpp::Category::getInstance("CATEGORY").removeAllAppenders();
        close(client);
        close(listener);
    }
    /* All it has logged, without the line numbers of the places. */
    std::string take_log()
    {
        static const std::string place = " --[vx_si5351";
        std::string text = log.str();
        log.str("");
        for (size_t at = 0; (at = text.find(place + ":")) != std::string::npos;) {
            at += place.size();
            text.erase(at, text.find(']', at) - at);
        }
        return text;
    }
    std::ostringstream log;
    int client = bound_socket(0);
    int listener = bound_socket(11000);
};

TEST_F(Client, SendsItsBytesOrLogsWhyNot)
{
    static const struct {
        const char *name;
        int (*call)(int sock);
        std::string bytes;
    } calls[] = {
        {"VX_SI5351_SET_PARAM", [](int sock) { return send_set_param(sock, 2, 44100); },
         set_rate_bytes},
        {"VX_SI5351_SET_INC",
         [](int sock) { return set_increase(sock, 2); },
         {"\x35\x12\0\0\x02\0\0\0\0\0\0\0", 12}},
        {"VX_SI5351_SET_DEC",
         [](int sock) { return set_decrease(sock, -1); },
         {"\x36\x12\0\0\xFF\xFF\xFF\xFF\0\0\0\0", 12}},
        {"VX_SI5351_SET_RESET",
         [](int sock) { return set_reset(sock, 9); },
         {"\x37\x12\0\0\x09\0\0\0\0\0\0\0", 12}},
        {"VX_FIFO_REPORT",
         [](int sock) { return set_fifo_status(sock, 1, 4096, 1024); },
         {"\x38\x12\0\0\x01\0\0\0\0\x10\0\0\0\x04\0\0", 16}},
    };
    const int stranger = bound_socket(0);
    answer(stranger, client, 1); // whatever comes from wherever answers the set-param
    for (const auto &row : calls) {
        EXPECT_EQ(row.call(client), 0) << row.name;
        EXPECT_EQ(receive_reply(listener, 1000), row.bytes) << row.name;
        EXPECT_EQ(take_log(), "") << row.name;

        EXPECT_EQ(row.call(-1), -1) << row.name;
        EXPECT_EQ(take_log(),
                  "ERROR send " + std::string(row.name) +
                      " to<127.0.0.1:11000> fd:-1 error:Bad file descriptor --[vx_si5351]\n");
    }
    EXPECT_EQ(receive_reply(client, 50), "") << "the answer was left where it was";
    EXPECT_EQ(receive_reply(listener, 50), "") << "sent more than once";
    close(stranger);
}

TEST_F(Client, SetParamSendsAgainEvery2sUntilItIsAnswered)
{
    std::thread service([this] {
        const auto start = std::chrono::steady_clock::now();
        for (int request = 0; request < 3; request++) {
            EXPECT_EQ(receive_reply(listener, 10000), set_rate_bytes);
            EXPECT_NEAR(elapsed_ms(start), request * 2000, 900) << request;
        }
        answer(listener, client, 64);
    });
    EXPECT_EQ(send_set_param(client, 2, 44100), 0);
    service.join();
    EXPECT_EQ(receive_reply(listener, 50), "") << "sent again after the answer";
    const std::string line = "ERROR get 5351 set param response timeout --[vx_si5351]\n";
    EXPECT_EQ(take_log(), line + line);
}

/* A call must wait for the answer that comes 300 ms after its request, whatever was on the socket
 * before it, and leave nothing there. */
TEST_F(Client, SetParamIsNotAnsweredByWhatAnEarlierCallLeft)
{
    const int stranger = bound_socket(0);
    static const struct {
        const char *fault;
        size_t waiting, late; // late answers before the call: how many, of how many bytes
        bool from_stranger;
        size_t length; // of the answer
    } rounds[] = {
        {"answers to resends end the next wait", 3, 64, false, 64},
        {"an oversized late answer stays", 1, 65, false, 1},
        {"an empty late answer stays", 1, 0, false, 64},
        {"an oversized answer is left there", 0, 0, true, 2000},
        {"the answer is left there", 0, 0, true, 64},
        {"an empty answer takes a second one", 0, 0, true, 0},
    };
    for (const auto &round : rounds) {
        for (size_t i = 0; i < round.waiting; i++)
            answer(listener, client, round.late);
        std::thread service([&] {
            EXPECT_EQ(receive_reply(listener, 1000), set_rate_bytes) << round.fault;
            usleep(300000);
            answer(round.from_stranger ? stranger : listener, client, round.length);
        });
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(send_set_param(client, 2, 44100), 0) << round.fault;
        EXPECT_GE(elapsed_ms(start), 250) << round.fault;
        service.join();
        char byte;
        EXPECT_LT(recv(client, &byte, 1, MSG_DONTWAIT), 0) << round.fault;
    }
    EXPECT_EQ(take_log(), "");
    close(stranger);
}

struct ClientOfService : testing::Test {
    void SetUp() override
    {
        process = start_service(SI5351_APP_SIM);
        await_port();
    }
    void TearDown() override
    {
        close(client);
        stop_service(process);
    }
    SERVICE_PROCESS_T process = {};
    int client = open_client();
};

TEST_F(ClientOfService, CommandsReachTheChannels)
{
    EXPECT_EQ(send_set_param(client, 2, 44100), 0);
    EXPECT_EQ(send_set_param(client, 3, 192000), 0);
    EXPECT_EQ(send_set_param(client, 9, 48000), 0) << "refused by the service, but received";
    for (int step = 0; step < 3; step++) {
        EXPECT_EQ(set_increase(client, 2), 0);
        EXPECT_EQ(set_decrease(client, 3), 0);
    }
    EXPECT_EQ(set_reset(client, 3), 0);
    EXPECT_EQ(set_reset(client, 9), 0);
    EXPECT_EQ(set_fifo_status(client, 1, 4096, 1024), 0);
    EXPECT_EQ(fetch_dump(client), "5351 info\n"
                                  "ch:1 rate:48000 value:253600 status:set param\n"
                                  "ch:2 rate:44100 value:749600 status:increase\n"
                                  "ch:3 rate:192000 value:651200 status:reset\n");
    EXPECT_NE(read_file("/tmp/genlock.json").find("\"fifoTotal\":4096,\"fifoUsed\":1024"),
              std::string::npos);
}

/* At 300 ppm the fill moves 14.4 frames/s on its own, 86 in 6 s; the trims hold it to 19.2 steps of
 * 4 frames in the end, of which 1 - exp(-6 s / 5.3 s), two thirds, are to be reached by then. */
TEST_F(ClientOfService, TheExampleFollowsItsFifo)
{
    static const struct {
        const char *ch, *ppm;
        int sign;
    } followers[] = {{"1", "300", 1}, {"3", "-300", -1}};
    SERVICE_PROCESS_T started[2];
    for (size_t i = 0; i < 2; i++)
        started[i] = start_service(FIFO_FOLLOWER, "/tmp", {followers[i].ch, followers[i].ppm, "6"});
    for (const auto &follower : started) {
        int status = -1;
        waitpid(follower.pid, &status, 0);
        EXPECT_EQ(status, 0) << read_output(follower);
    }
    const std::string dump = fetch_dump(client);
    for (size_t i = 0; i < 2; i++) {
        const std::string output = read_output(started[i]);
        const int fill = std::stoi(output.substr(output.rfind(" fill ") + 6));
        const int position = std::stoi(output.substr(output.rfind(" position ") + 10));
        EXPECT_NEAR(position, followers[i].sign * 13, 2) << output;
        EXPECT_NEAR(fill, 128 + followers[i].sign * 52, 6) << output;
        const std::string record = "ch:" + std::string(followers[i].ch) +
                                   " rate:48000 value:" + std::to_string(253600 - position * 1200) +
                                   " ";
        EXPECT_NE(dump.find(record), std::string::npos) << record << dump;
    }
}
