/* Text into the service's pipe, and what stands in its way. */
#include "ctl/console_pipe.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "chip/rates.h"
#include "ctl/clock.h"

static constexpr const char *PIPE = "/tmp/si5351";
static constexpr std::chrono::milliseconds READ_WAIT(900);

/* The descriptor, or -1 with the failure told. */
static int open_pipe(RESULT_E *result)
{
    const int fd = open(PIPE, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    struct stat info = {};
    if (fd >= 0 && fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode)) return fd;
    const bool is_link = fd < 0 && errno == ELOOP;
    if (fd >= 0 || is_link) {
        if (fd >= 0) (void)close(fd); // nothing was written
        *result = fail(NOT_SO, "%s is no pipe; remove it, and start the service again", PIPE);
    } else if (errno == ENOENT || errno == ENXIO) {
        *result =
            fail(NO_SERVICE, "no service reads %s; start it: systemctl start si5351_app", PIPE);
    } else if (errno == EACCES) {
        *result = fail(NOT_SO, "%s may not be written by this user; try again as root", PIPE);
    } else {
        *result = fail(NOT_SO, "%s: %s", PIPE, strerror(errno));
    }
    return -1;
}

/* False when something is still in the pipe after the wait. */
static bool await_empty(int fd)
{
    const auto end = std::chrono::steady_clock::now() + READ_WAIT;
    int waiting = 1;
    while (std::chrono::steady_clock::now() < end) {
        if (ioctl(fd, FIONREAD, &waiting) != 0 || waiting == 0) break;
        (void)usleep(1000);
    }
    return waiting == 0;
}

/* One read of the service is one command: nothing else may lie in the pipe with it. */
static RESULT_E write_alone(int fd, const std::string &text)
{
    if (!await_empty(fd))
        return fail(NO_SERVICE, "the service does not read %s; nothing was written", PIPE);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        return fail(NO_SERVICE, "%s: %s", PIPE, strerror(errno));
    if (!await_empty(fd))
        return fail(NO_SERVICE, "the service has not read %s yet; the text waits there", PIPE);
    return DONE;
}

static RESULT_E type_command(const std::string &text)
{
    RESULT_E result = DONE;
    const int fd = open_pipe(&result);
    if (fd < 0) return result;
    (void)signal(SIGPIPE, SIG_IGN); // a service that goes away is told by the write
    result = write_alone(fd, text);
    (void)close(fd); // it has been read, or the failure is told
    return result;
}

RESULT_E switch_chip_writes(bool on)
{
    const RESULT_E result = type_command(on ? "enable\n" : "disable\n");
    if (result != DONE) return result;
    (void)printf(on ? "chip writes are on\n" : "chip writes of programs are off\n");
    return DONE;
}

/* With a larger step the numerator would leave 0 to RATIO_DENOM before the range of 24 steps ends.
 */
static int largest_step(const RATE_ROW_T &rate)
{
    return static_cast<int>(std::min(rate.num, RATIO_DENOM - rate.num)) / TRIM_LIMIT;
}

RESULT_E set_step_size(int rate_hz, int size, bool force)
{
    const RATE_ROW_T *rate = find_rate(rate_hz);
    if (rate == nullptr)
        return fail(NOT_SO, "refused: %d Hz is not supported; use %s", rate_hz,
                    list_rates().c_str());
    const int largest = largest_step(*rate);
    if (!force && (size < 1 || size > largest)) {
        return fail(NOT_SO,
                    "refused: at %d Hz a step is 1 to %d: a smaller one turns faster and slower "
                    "round, a larger one leaves the divider's range; --force sends it all the same",
                    rate_hz, largest);
    }
    const std::string text = "step " + std::to_string(rate_hz) + " " + std::to_string(size) + "\n";
    const RESULT_E result = type_command(text);
    if (result != DONE) return result;
    (void)printf("%d Hz: trim step is now %d (%d at start). A channel takes it with its next rate "
                 "command.\n",
                 rate_hz, size, rate->start_step);
    return DONE;
}
