/* The process: sets the log up, starts the threads, and sleeps for the rest of its life. */
#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "console/console.h"
#include "entry/instance.h"
#include "entry/start_up.h"
#include "log/log.h"

static constexpr const char *LOGGING_FILE = "/config/logconf/si5351_app.conf";
static constexpr unsigned SLEEP_S = 5;

int main()
{
    if (is_other_running()) {
        (void)fprintf(stderr, "%s: a service is running already, it reads %s\n",
                      program_invocation_short_name, PIPE_PATH);
        return 1;
    }
    // Under a supervisor standard output is no terminal; its few lines must still appear at once.
    (void)setvbuf(stdout, nullptr, _IOLBF, 0); // on failure they come late
    (void)configure_logging(LOGGING_FILE);     // on failure they go to standard error
    si5351_debug_task(nullptr);
    (void)vx_si5351_start2(); // a failure is logged; the console goes on
    for (;;)
        sleep(SLEEP_S);
}
