/* Measures the running service against bare processes that make the same system calls, and prints a
 * table: each figure as a ratio to its floor, taken in turns in the same run.
 * Usage: end_to_end SERVICE BARE_ECHO BARE_PROCESS [IDLE_SECONDS]
 * The service reads /config/logconf/si5351_app.conf, which this program writes: start it through
 * scripts/bench.sh, where that is a file system of its own. */
#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

static constexpr const char *LOGGING_FILE = "/config/logconf/si5351_app.conf";
static constexpr int SERVICE_PORT = 11000;
static constexpr int BARE_PORT = 11999;
static constexpr int ROUNDS = 20;              // both sides in turn
static constexpr int ROUND_TRIPS = 300;        // per round
static constexpr int TRIMS = 3000;             // per round
static constexpr double BUS_US = 8 * 29 / 0.4; // 8 transfers of 29 clock periods at 400 kHz

static pid_t start(const std::vector<const char *> &words)
{
    const pid_t pid = fork();
    if (pid != 0) return pid;
    std::vector<char *> args;
    args.reserve(words.size() + 1);
    for (const char *word : words)
        args.push_back(const_cast<char *>(word));
    args.push_back(nullptr);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    execv(args[0], args.data());
    _exit(127);
}

static void stop(pid_t pid)
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

static void write_logging_file(const char *priority)
{
    std::ofstream(LOGGING_FILE) << "rootCategory=" << priority
                                << ", file\nappender.file=RollingFileAppender\n"
                                   "appender.file.fileName=/tmp/bench.log\n"
                                   "appender.file.maxFileSize=1048576\n"
                                   "appender.file.maxBackupIndex=2\n"
                                   "appender.file.layout=PatternLayout\n"
                                   "appender.file.layout.ConversionPattern="
                                   "%p %d{%Y-%m-%d %H:%M:%S.%l} %m%n\n";
}

static double now_us(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

static double cpu_us(pid_t pid)
{
    clockid_t clock = 0;
    clock_getcpuclockid(pid, &clock);
    return now_us(clock);
}

static int connect_to(int port)
{
    const int client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(client, reinterpret_cast<sockaddr *>(&to), sizeof(to)) != 0) abort();
    return client;
}

/* Sends a command of 12 bytes; with an answer, waits for it. False when none comes. */
static bool command(int client, uint32_t cmd, bool answered)
{
    const uint32_t words[3] = {cmd, 2, cmd == 0x1234 ? 48000U : 0U};
    uint32_t reply[16];
    if (send(client, words, sizeof(words), 0) < 0) return false;
    if (!answered) return true;
    pollfd wait = {client, POLLIN, 0};
    return poll(&wait, 1, 100) == 1 && recv(client, reply, sizeof(reply), 0) == 64;
}

static void await_answer(int client)
{
    for (int attempt = 0; attempt < 5000; attempt++) {
        if (command(client, 0x1234, true)) return;
        usleep(1000);
    }
    (void)fprintf(stderr, "no answer\n");
    exit(1);
}

static double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/* The peer has finished with one command before the next is sent: the pause outlasts its writes. */
static double round_trip_us(int client)
{
    std::vector<double> times;
    for (int i = 0; i < ROUND_TRIPS; i++) {
        usleep(200);
        const double start_us = now_us(CLOCK_MONOTONIC);
        if (!command(client, 0x1234, true)) continue;
        times.push_back(now_us(CLOCK_MONOTONIC) - start_us);
    }
    return median(times);
}

/* CPU time of the peer per trim; up and down in turn, so that none is refused. Each waits to be
 * woken, as in real use. */
static double trim_us(int client, pid_t peer)
{
    await_answer(client);
    usleep(1000);
    const double before_us = cpu_us(peer);
    for (int i = 0; i < TRIMS; i++) {
        (void)command(client, 0x1235 + static_cast<uint32_t>(i % 2), false);
        usleep(60);
    }
    usleep(1000);
    return (cpu_us(peer) - before_us) / TRIMS;
}

static void print_row(const char *what, const char *unit, double value, double floor, double limit)
{
    (void)printf("| %-52s | %10.2f | %10.2f %-3s | %6.3f | %6.2f | %s |\n", what, value, floor,
                 unit, value / floor, limit, value / floor <= limit ? "yes" : "NO ");
}

static void compare_speed(const char *service, const char *echo, const char *priority,
                          double round_trip_limit, double trim_limit)
{
    write_logging_file(priority);
    const std::string port = std::to_string(BARE_PORT);
    const pid_t bare = start({echo, port.c_str()});
    const pid_t app = start({service});
    const int to_bare = connect_to(BARE_PORT);
    const int to_app = connect_to(SERVICE_PORT);
    await_answer(to_bare);
    await_answer(to_app);
    std::vector<double> trip[2];
    std::vector<double> trim[2];
    for (int round = 0; round < ROUNDS; round++) {
        trip[0].push_back(round_trip_us(to_bare));
        trip[1].push_back(round_trip_us(to_app));
        trim[0].push_back(trim_us(to_bare, bare));
        trim[1].push_back(trim_us(to_app, app));
    }
    const std::string log = std::string(", log at ") + priority;
    print_row(("set-param round trip" + log).c_str(), "us", median(trip[1]), median(trip[0]),
              round_trip_limit);
    print_row(("CPU time of a trim" + log).c_str(), "us", median(trim[1]), median(trim[0]),
              trim_limit);
    print_row(("trim and its bus time" + log).c_str(), "us", median(trim[1]) + BUS_US, BUS_US,
              1.05);
    stop(app);
    stop(bare);
    close(to_app);
    close(to_bare);
}

/* A field of smaps_rollup, in KiB. */
static double memory_kib(pid_t pid, const std::string &field)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(field + ":", 0) == 0) return std::stod(line.substr(field.size() + 1));
    }
    return 0;
}

static long count_sleeps(pid_t pid)
{
    long sleeps = 0;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream file(task.path() / "status");
        for (std::string line; std::getline(file, line);) {
            const std::string key = "voluntary_ctxt_switches:";
            if (line.rfind(key, 0) == 0) sleeps += std::stol(line.substr(key.size()));
        }
    }
    return sleeps;
}

static void measure_alone(const char *service, const char *bare_process, int idle_s)
{
    write_logging_file("INFO");
    const pid_t bare = start({bare_process, LOGGING_FILE});
    const double start_us = now_us(CLOCK_MONOTONIC);
    const pid_t app = start({service});
    const int client = connect_to(SERVICE_PORT);
    await_answer(client);
    const double answered_us = now_us(CLOCK_MONOTONIC) - start_us;
    sleep(1);
    for (const char *field : {"Rss", "Private_Dirty"}) {
        print_row((std::string("memory, ") + field).c_str(), "KiB", memory_kib(app, field),
                  memory_kib(bare, field), 1.15);
    }
    const double cpu_before_us = cpu_us(app);
    const long sleeps_before = count_sleeps(app);
    sleep(static_cast<unsigned>(idle_s));
    (void)printf("\nStart to first answered datagram: %.1f ms\n", answered_us / 1e3);
    (void)printf("Idle for %d s: %.2f ms of CPU time, %.2f wake-ups per second\n", idle_s,
                 (cpu_us(app) - cpu_before_us) / 1e3,
                 static_cast<double>(count_sleeps(app) - sleeps_before) / idle_s);
    stop(app);
    stop(bare);
    close(client);
}

int main(int argc, char **argv)
{
    if (argc < 4 || argc > 5) {
        (void)fprintf(stderr, "usage: %s SERVICE BARE_ECHO BARE_PROCESS [IDLE_SECONDS]\n", argv[0]);
        return 2;
    }
    (void)setvbuf(stdout, nullptr, _IOLBF, 0);
    (void)printf("| %-52s | %10s | %14s | %6s | %6s | ok  |\n|---|---|---|---|---|---|\n", "figure",
                 "service", "floor", "ratio", "limit");
    compare_speed(argv[1], argv[2], "ERROR", 1.2, 1.3);
    compare_speed(argv[1], argv[2], "INFO", 1.7, 2.2);
    measure_alone(argv[1], argv[3],
                  argc == 5 ? static_cast<int>(strtol(argv[4], nullptr, 10)) : 60);
    return 0;
}
