/* si5351ctl as a shell sees it: command, output, exit status; against the service over the
 * simulated chip, against none, and against a hostile machine. */
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/service_process.h"

struct ROW_T {
    const char *arguments;
    int status;
    const char *text; // is in the output
};

static std::string output_of(const std::string &command, int *status)
{
    FILE *pipe = popen((command + " 2>&1").c_str(), "r"); // NOLINT(cert-env33-c): ours
    std::string output;
    char bytes[4096];
    while (const size_t length = fread(bytes, 1, sizeof(bytes), pipe))
        output.append(bytes, length);
    *status = WEXITSTATUS(pclose(pipe));
    return output;
}

static void expect(const ROW_T &row, const std::string &around = "")
{
    const auto start = std::chrono::steady_clock::now();
    int status = -1;
    const std::string output = output_of(around + SI5351CTL " " + row.arguments, &status);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(status, row.status) << row.arguments << "\n" << output;
    EXPECT_NE(output.find(row.text), std::string::npos) << row.arguments << "\n" << output;
    EXPECT_LT(took.count(), 2) << row.arguments;
}

static void write_file(const char *path, const std::string &text)
{
    std::ofstream(path) << text;
}

/* Clocks and ppm as in docs/bring-up.md, one step being 16.75 ppm at 44100 Hz. */
TEST_F(RUNNING_SERVICE_T, CtlDrivesAndShowsTheChannels)
{
    // clang-format off
    static const ROW_T rows[] = {
        {"status", 0, "1 hdmi         48000 Hz   6144028.14 Hz    +4.58 ppm  last command: set param"},
        {"rate analog 44100", 0, "analog: 44100 Hz, clock 5644835.93 Hz, +6.36 ppm, +0 of 24 steps"},
        {"rate analog 32000", 1, "refused: 32000 Hz is not supported, and was not sent"},
        {"faster 2", 0, "+23.11 ppm, +1 of 24 steps; left: 23 faster, 25 slower"},
        {"faster 2 30", 1, "clock 5647105.81 Hz"},
        {"faster 2", 1, "at the end of its range, 0 of 1 steps done"},
        {"slower analog 48", 0, "clock 5642567.86 Hz"},
        {"slower analog", 1, "at the end of its range"},
        {"centre analog", 0, "+6.20 ppm, learned centre; left: 24 faster, 24 slower"},
        {"slower analog 24", 0, "-24 of 24 steps; left: 48 faster, 0 slower"},
        {"centre analog", 0, "+6.03 ppm, learned centre"},
        {"faster earc 2", 0, "+35.83 ppm, +2 of 24 steps"},
        {"disable", 0, "off"},
        {"faster earc", 1, "did not move as asked: its range ends here, it is at its centre, its step"},
        {"centre earc", 1, "or chip writes are switched off; si5351ctl enable"},
        {"rate earc 44100", 1, "refused: chip writes are switched off"},
        {"enable", 0, "on"},
        {"step 48000 0", 1, "refused: at 48000 Hz a step is 1 to 10566"},
        {"step 48000 10567", 1, "refused"},
        {"step 48000 10567 --force", 0, "trim step is now 10567 (1200 at start)"},
        {"step 48000 10566", 0, "trim step is now 10566"},
        {"rate hdmi 48000", 0, "+4.58 ppm"},
        {"slower hdmi", 1, "did not move as asked"},
        {"slower hdmi 15", 1, "-140.9 of 24 steps"},
        {"status", 0, "-140.9 of 24 steps; left: 48 faster, 0 slower"},
        {"rate hdmi 48000", 0, "+4.58 ppm"},
        {"watch --seconds 1", 0, "analog 44100 Hz +6.03 ppm +0 steps"},
        {"watch --seconds 2 >/dev/full", 1, ""},
        {"status <&-", 0, "service     answers"},
        {"metrics --registers /tmp/si5351_sim.regs", 0,
            "si5351_clock_hertz{channel=\"3\",path=\"earc/spdif\"} 6144220.14"},
        {"metrics --registers /tmp/si5351_sim.regs", 0, "\nsi5351_chip_as_it_should_be 1\n"},
        {"chip --registers /tmp/si5351_sim.regs", 0,
            "CLK1    analog      5644834.04 Hz = PLL A / 79.718907 / 2, +6.03 ppm off 128 x 44100 Hz\n"},
        {"", 2, "subcommand is required"},
        {"rate 4 48000", 2, "4 is no channel: use 1, 2 or 3, or hdmi, analog or earc"},
        {"faster 1 49", 2, "49 not in range 1 to 48"},
    };
    // clang-format on
    for (const ROW_T &row : rows)
        expect(row);
}

TEST_F(RUNNING_SERVICE_T, CtlTellsReportsAndRefusedRates)
{
    command(0x1238, 1, 4096, 1024);
    command(0x1234, 3, 32000);
    expect({"status", 1, "[#####...............] 1024 of 4096, 25 %, "});
    expect({"status", 1, "earc/spdif   32000 Hz REFUSED"});
    expect({"status", 1, "si5351ctl rate 3 48000"});
    expect({"centre 3", 1, "takes no trims at 32000 Hz"});
    expect({"record /tmp/record.csv --seconds 1", 0, ""});
    expect({"record /tmp/record.csv --seconds 1", 0, ""});
    const std::string record = read_file("/tmp/record.csv");
    EXPECT_EQ(count_text(record, "time,"), 1) << "a heading in the middle";
    EXPECT_EQ(count_text(record, ",1,hdmi,48000,6144028.14,4.580,0,4096,1024,"), 2) << record;
    EXPECT_EQ(count_text(record, ",3,earc/spdif,32000,,,,,,"), 2) << record;

    int status = 0;
    const auto json = nlohmann::json::parse(output_of(SI5351CTL " status --json 2>&-; :", &status));
    EXPECT_EQ(json.at("service"), true);
    EXPECT_EQ(json.at("channels").at(0).at("fifo_fill"), 1024);
    EXPECT_EQ(json.at("channels").at(1).at("left_faster"), 24);
    EXPECT_EQ(json.at("channels").at(2).at("rate_refused"), true);
    EXPECT_FALSE(json.at("channels").at(2).contains("clock_hz")) << "nobody knows";
}

TEST_F(RUNNING_SERVICE_T, CtlTellsAChipThatIsNotAsItShouldBe)
{
    const std::string good = read_file("/tmp/si5351_sim.regs");
    std::string unlocked = good;
    unlocked[0] = '\x20';
    std::string stopped = good;
    stopped[17] = '\x8D';
    const struct {
        const char *text;
        std::string image;
    } images[] = {
        {"the chip lost its settings", std::string(256, '\0')},
        {"the chip lost its settings", std::string(256, '\xFF')},
        {"the chip is not as the service believes", stopped},
        {"CLK1    analog      powered down; THE SERVICE BELIEVES 6144028.14 Hz", stopped},
        {"PLL A HAS LOST ITS LOCK", unlocked},
        {"fewer than 188 registers", good.substr(0, 187)},
    };
    for (const auto &[text, image] : images) {
        write_file("/tmp/image", image);
        expect({"chip --registers /tmp/image", 1, text});
    }
    write_file("/tmp/image", good);
    expect({"faster 1", 0, ""});
    expect({"chip --registers /tmp/image", 1, "; THE SERVICE BELIEVES 6144124.14 Hz"});
    expect({"metrics --registers /tmp/image", 1, "\nsi5351_chip_as_it_should_be 0\n"});
    if (access("/dev/i2c-1", F_OK) != 0) expect({"chip", 1, "modprobe i2c-dev"});
}

TEST_F(RUNNING_SERVICE_T, CtlWatchesOverARestart)
{
    std::string output;
    std::thread watching([&output] {
        int status = 0;
        output = output_of(SI5351CTL " watch --seconds 8", &status);
        EXPECT_EQ(status, 0);
    });
    usleep(1500000);
    stop_service(process);
    process = start_service(SI5351_APP_SIM);
    await_port();
    watching.join();
    EXPECT_EQ(count_text(output, " the service was started anew"), 1) << output;
    EXPECT_GE(count_text(output, "  hdmi 48000 Hz +4.58 ppm"), 3) << output;
}

TEST(Ctl, SaysThatThereIsNoService)
{
    static const ROW_T rows[] = {
        {"status", 3, "start it: systemctl start si5351_app"},
        {"status --json", 3, "\"service\": false"},
        {"rate 1 48000", 3, "no service at 127.0.0.1:11000"},
        {"slower 1", 3, "no service"},
        {"centre 1", 3, "no service"},
        {"enable", 3, "no service reads /tmp/si5351"},
        {"metrics", 3, "si5351_service_up 0"},
        {"watch --seconds 1", 3, "no answer from the service"},
    };
    for (const ROW_T &row : rows)
        expect(row);
}

TEST(Ctl, StandsNonsenseOnThePort)
{
    const int port = open_client();
    const sockaddr_in own = {AF_INET, htons(11000), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(bind(port, reinterpret_cast<const sockaddr *>(&own), sizeof(own)), 0);
    std::thread nonsense([port] {
        std::ifstream random("/dev/urandom");
        for (pollfd wait = {port, POLLIN, 0}; poll(&wait, 1, 1500) == 1;) {
            char bytes[600];
            sockaddr_in from = {};
            socklen_t size = sizeof(from);
            (void)recvfrom(port, bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr *>(&from),
                           &size);
            for (const size_t length : {0, 1, 64, 300, 600}) {
                random.read(bytes, sizeof(bytes));
                (void)sendto(port, bytes, length, 0, reinterpret_cast<sockaddr *>(&from), size);
            }
        }
    });
    expect({"status", 3, "does not answer like the service"});
    expect({"rate 1 48000", 3, "does not answer"});
    expect({"metrics", 3, "si5351_service_up 0"});
    nonsense.join();
    close(port);
}

TEST(Ctl, StandsAPipeThatNobodyReads)
{
    ASSERT_EQ(mkfifo("/tmp/si5351", 0777), 0);
    const int pipe = open("/tmp/si5351", O_RDWR | O_CLOEXEC);
    expect({"enable", 3, "has not read /tmp/si5351 yet"});
    expect({"enable", 3, "nothing was written"});
    close(pipe);
    unlink("/tmp/si5351");
    write_file("/tmp/si5351", "");
    expect({"disable", 1, "/tmp/si5351 is no pipe"});
    unlink("/tmp/si5351");
}

TEST_F(RUNNING_SERVICE_T, CtlStandsAHostileStatusFile)
{
    const std::string texts[] = {"",
                                 "{",
                                 "[1]",
                                 R"({"genlock":7})",
                                 "\xFF\xFE",
                                 R"({"genlock":{"hdmi":{"fifoTotal":"x","fifoUsed":1e99}}})",
                                 "{\"genlock\":" + std::string(5000, '[')};
    for (const std::string &text : texts) {
        write_file("/tmp/genlock.json", text);
        expect({"status", 1, "/tmp/genlock.json is not as the service writes it"});
    }
    unlink("/tmp/genlock.json");
    ASSERT_EQ(mkfifo("/tmp/genlock.json", 0600), 0);
    expect({"status", 1, "/tmp/genlock.json is not as the service writes it"});
    unlink("/tmp/genlock.json");
    ASSERT_EQ(mkdir("/tmp/genlock.json", 0700), 0);
    expect({"status", 1, "/tmp/genlock.json: Is a directory"});
    ASSERT_EQ(chmod("/tmp", 0), 0); // without rights, where root does not pass them by
    const std::string plain = "setpriv --bounding-set -dac_override,-dac_read_search ";
    expect({"status", 1, "/tmp/genlock.json: Permission denied"}, plain);
    expect({"enable", 1, "try again as root"}, plain);
    ASSERT_EQ(chmod("/tmp", 01777), 0);
    ASSERT_EQ(rmdir("/tmp/genlock.json"), 0);
}
