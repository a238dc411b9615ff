/* Shared by the tests that talk to a running service. */
#include "tests/service_process.h"

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "service/protocol.h"

static constexpr const char *CHIP_FILE = "/tmp/si5351_sim.regs";

SERVICE_PROCESS_T start_service(const std::string &program, const std::string &folder,
                                const std::vector<std::string> &arguments)
{
    static int started = 0;
    std::vector<const char *> words = {program.c_str()};
    for (const auto &argument : arguments)
        words.push_back(argument.c_str());
    words.push_back(nullptr);
    const std::string output =
        folder + "/si5351_output." + std::to_string(getpid()) + "." + std::to_string(started++);
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        execv(program.c_str(), const_cast<char *const *>(words.data()));
        _exit(127);
    }
    return {pid, output};
}

void stop_service(const SERVICE_PROCESS_T &service)
{
    int status = 0;
    EXPECT_EQ(waitpid(service.pid, &status, WNOHANG), 0) << read_output(service);
    kill(service.pid, SIGKILL);
    waitpid(service.pid, &status, 0);
}

std::string read_output(const SERVICE_PROCESS_T &service)
{
    return read_file(service.output);
}

void await_output(const SERVICE_PROCESS_T &service, const std::string &text, int times)
{
    for (int poll = 0; poll < 2000; poll++) {
        if (count_text(read_output(service), text) >= times) return;
        usleep(10000);
    }
    FAIL() << text << " is not in " << read_output(service);
}

void await_port()
{
    for (int poll = 0; poll < 2000; poll++) {
        if (read_file("/proc/net/udp").find(" 0100007F:2AF8 ") != std::string::npos) return;
        usleep(10000);
    }
    FAIL() << "127.0.0.1:11000 is not bound";
}

int open_client()
{
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

void send_bytes(int client, const std::string &bytes)
{
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(SERVICE_PORT);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(sendto(client, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&to),
                     sizeof(to)),
              static_cast<ssize_t>(bytes.size()));
}

void send_words(int client, const std::vector<uint32_t> &words)
{
    send_bytes(client, {reinterpret_cast<const char *>(words.data()), words.size() * 4});
}

std::string receive_reply(int client, int wait_ms)
{
    pollfd wait = {client, POLLIN, 0};
    char reply[2048];
    if (poll(&wait, 1, wait_ms) != 1) return "";
    const ssize_t length = recv(client, reply, sizeof(reply), 0);
    return {reply, static_cast<size_t>(length > 0 ? length : 0)};
}

std::string fetch_dump(int client)
{
    send_words(client, {0x1239});
    std::string dump;
    for (int datagram = 0; datagram < 4; datagram++)
        dump += receive_reply(client);
    return dump;
}

long cpu_ticks(pid_t pid)
{
    const std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
    long user = 0;
    long system = 0;
    (void)sscanf(stat.c_str() + stat.rfind(')'),
                 ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system);
    return user + system;
}

void type_text(const std::string &text)
{
    int fd = -1;
    for (int poll = 0; fd < 0 && poll < 500; poll++) {
        fd = open("/tmp/si5351", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) usleep(10000);
    }
    ASSERT_GE(fd, 0) << "nobody reads the pipe";
    ASSERT_EQ(fcntl(fd, F_SETFL, 0), 0);
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    for (int waiting = 1; waiting > 0; usleep(1000))
        ASSERT_EQ(ioctl(fd, FIONREAD, &waiting), 0);
    close(fd);
}

long count_drops()
{
    const std::string sockets = read_file("/proc/net/udp");
    const size_t line = sockets.find(" 0100007F:2AF8 ");
    if (line == std::string::npos) return -1;
    const size_t end = sockets.find('\n', line); // the count is the line's last column
    const size_t last = sockets.find_last_not_of(' ', end - 1);
    return std::stol(sockets.substr(sockets.rfind(' ', last)));
}

SIM_FILE_T *map_chip_file()
{
    const int fd = open(CHIP_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    void *memory = MAP_FAILED;
    if (ftruncate(fd, sizeof(SIM_FILE_T)) == 0)
        memory = mmap(nullptr, sizeof(SIM_FILE_T), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return memory == MAP_FAILED ? nullptr : static_cast<SIM_FILE_T *>(memory);
}

std::string chip_registers()
{
    const std::string image = read_file(CHIP_FILE);
    return image.size() < 66 ? "" : to_hex(&image[42], 24);
}

void RUNNING_SERVICE_T::SetUp()
{
    (void)unlink("/tmp/genlock.json"); // where no sandbox could be made, an earlier case's
    process = start_service(SI5351_APP_SIM);
    await_output(process, "CLK2 runs at 6144028.14 Hz");
    await_port();
    ASSERT_EQ(fetch_dump(client), model_dump(model));
}

void RUNNING_SERVICE_T::TearDown()
{
    close(client);
    stop_service(process);
}

void RUNNING_SERVICE_T::command(uint32_t cmd, int32_t ch, int32_t arg0, int32_t arg1)
{
    send_words(client, {cmd, static_cast<uint32_t>(ch), static_cast<uint32_t>(arg0),
                        static_cast<uint32_t>(arg1)});
    apply_command(&model, cmd, ch, arg0, arg1);
    EXPECT_EQ(cmd == 0x1234 ? receive_reply(client).size() : 64U, 64U);
}

void RUNNING_SERVICE_T::expect_agreement() const
{
    EXPECT_EQ(fetch_dump(client), model_dump(model));
    EXPECT_EQ(chip_registers(), model_registers(model));
}
