/* The process: sets the log up, starts the threads, and sleeps for the rest of its life. */
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "console/console.h"
#include "entry/instance.h"
#include "entry/start_up.h"
#include "log/log.h"

static constexpr const char *LOGGING_FILE = "/config/logconf/si5351_app.conf";
static constexpr unsigned SLEEP_S = 5;

/* Removes the pipe: without a reader, a writer would wait forever. The signal is raised again and,
 * with its default effect, ends the process when this returns. */
static void remove_pipe(int signal_number)
{
    (void)unlink(PIPE_PATH); // usually it is there
    (void)raise(signal_number);
}

static void set_signals()
{
    (void)signal(SIGPIPE, SIG_IGN); // a closed standard output must not end the service
    struct sigaction ending = {};
    ending.sa_handler = remove_pipe;
    ending.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction earlier = {};
        (void)sigaction(number, nullptr, &earlier);
        if (earlier.sa_handler == SIG_DFL) (void)sigaction(number, &ending, nullptr);
    }
}

int main()
{
    if (is_other_running()) {
        (void)fprintf(stderr, "%s: a service is running already, it reads %s\n",
                      program_invocation_short_name, PIPE_PATH);
        return 1;
    }
    set_signals();
    // Under a supervisor standard output is no terminal; its few lines must still appear at once.
    (void)setvbuf(stdout, nullptr, _IOLBF, 0); // on failure they come late
    (void)configure_logging(LOGGING_FILE);     // on failure they go to standard error
    si5351_debug_task(nullptr);
    (void)vx_si5351_start2(); // a failure is logged; the console goes on
    for (;;)
        sleep(SLEEP_S);
}
