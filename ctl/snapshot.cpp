/* Reading what the service shows of itself. Nothing here believes what it reads. */
#include "ctl/snapshot.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "ctl/sockets.h"

using nlohmann::json;

static constexpr const char *STATUS_FILE = "/tmp/genlock.json";
static constexpr size_t TEXT_SIZE = 1024; // 318 are the most that the service writes
static constexpr const char *REMOVE_IT = "; remove it, the next report writes it anew";

static double age_s(const timespec &then)
{
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now); // cannot fail
    return static_cast<double>(now.tv_sec - then.tv_sec) +
           static_cast<double>(now.tv_nsec - then.tv_nsec) * 1e-9;
}

static void note_fault(SNAPSHOT_T *snapshot, int failure)
{
    snapshot->reports_fault = std::string(STATUS_FILE) + ": " + strerror(failure);
    snapshot->reports_fault += failure == EACCES ? "; look at its owner and rights" : REMOVE_IT;
}

/* False without a file, which is no fault: nobody has reported yet; and with the fault noted. */
static bool read_status_file(SNAPSHOT_T *snapshot, std::string *text)
{
    // a pipe or a link in its place must not hold us up or lead us elsewhere
    const int fd = open(STATUS_FILE, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) return false;
    char bytes[TEXT_SIZE];
    struct stat info = {};
    ssize_t length = -1;
    if (fd >= 0 && fstat(fd, &info) == 0) length = read(fd, bytes, sizeof(bytes));
    if (length < 0) note_fault(snapshot, errno);
    if (fd >= 0) (void)close(fd); // only read from
    if (length < 0) return false;
    text->assign(bytes, static_cast<size_t>(length));
    snapshot->report_age_s = age_s(info.st_mtim);
    return true;
}

static bool read_number(const json &text, const char *path, const char *member, int32_t *number)
{
    const auto place = json::json_pointer() / "genlock" / path / member;
    if (!text.contains(place) || !text.at(place).is_number_integer()) return false;
    const auto value = text.at(place).get<int64_t>();
    *number = static_cast<int32_t>(value);
    return value == *number;
}

static bool read_fifos(const std::string &text, FIFO_T *fifos)
{
    const json parsed = json::parse(text, nullptr, false); // no exceptions: nothing is found in it
    bool found = true;
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        found = found && read_number(parsed, path_names[i], "fifoTotal", &fifos[i].size) &&
                read_number(parsed, path_names[i], "fifoUsed", &fifos[i].fill);
    }
    return found;
}

static void read_reports(SNAPSHOT_T *snapshot)
{
    std::string text;
    if (!read_status_file(snapshot, &text)) return;
    snapshot->has_reports = read_fifos(text, snapshot->fifos);
    if (!snapshot->has_reports)
        snapshot->reports_fault =
            std::string(STATUS_FILE) + " is not as the service writes it" + REMOVE_IT;
}

SNAPSHOT_T take_snapshot(int limit_ms)
{
    SNAPSHOT_T snapshot;
    snapshot.answers = list_channels(client_socket(), snapshot.listed, limit_ms) == 0;
    for (int i = 0; snapshot.answers && i < CHANNEL_COUNT; i++)
        snapshot.clocks[i] = work_out_clock(snapshot.listed[i]);
    read_reports(&snapshot);
    return snapshot;
}

/* Its answer as "NAME=value" lines. A bus that is held up must not hold us up. */
static std::string ask_systemd()
{
    static constexpr char command[] = "timeout 0.8 systemctl show -p LoadState -p ActiveState "
                                      "-p StatusText si5351_app.service 2>/dev/null";
    if (access("/run/systemd/system", F_OK) != 0) return "";
    FILE *answer = popen(command, "re"); // NOLINT(cert-env33-c): all its words are ours
    if (answer == nullptr) return "";
    char text[1024];
    const size_t length = fread(text, 1, sizeof(text), answer);
    (void)pclose(answer); // without an answer there is no text
    return {text, length};
}

static std::string find_value(const std::string &text, const std::string &name)
{
    const size_t at = text.find(name + "=");
    if (at == std::string::npos) return "";
    const size_t start = at + name.size() + 1;
    return text.substr(start, text.find('\n', start) - start);
}

std::string read_systemd_status()
{
    const std::string answer = ask_systemd();
    if (find_value(answer, "LoadState") != "loaded") return "";
    const std::string text = find_value(answer, "StatusText");
    return find_value(answer, "ActiveState") + (text.empty() ? "" : ", " + text);
}
