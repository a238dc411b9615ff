/* The debug console. */
#include "console/console.h"

#include <sys/prctl.h>
#include <unistd.h>

#include "log/log.h"

void *debug_task(void * /*unused*/)
{
    (void)prctl(PR_SET_NAME, "debug_task"); // cannot fail
    LOG_INFO("audio debug_task id %ld !!!!", static_cast<long>(gettid()));
    for (;;)
        pause();
}
