/* Start-up: creates the console and the service thread, with the chip's bring-up between them. */
#include "entry/start_up.h"

#include <sys/prctl.h>
#include <unistd.h>

#include "console/console.h"
#include "entry/supervisor.h"
#include "log/log.h"
#include "service/command_service.h"
#include "trim/bring_up.h"
#include "trim/channels.h"

pthread_t si5351tidp;

int si5351_debug_task(void * /*unused*/)
{
    pthread_t console;
    if (pthread_create(&console, nullptr, debug_task, nullptr) != 0) {
        LOG_ERROR("create debug_task err");
    }
    return 0;
}

int vx_si5351_start2()
{
    LOG_INFO(" audio vx_si5351_start2 startup");
    {
        const std::lock_guard lock(g_engine_lock);
        vx_si5351_init();
    }
    report_to_supervisor();
    if (pthread_create(&si5351tidp, nullptr, si5351_task, nullptr) != 0) {
        LOG_ERROR(" audio si5351_task thread create fail");
        return -1;
    }
    return 0;
}

void *si5351_task(void * /*unused*/)
{
    (void)prctl(PR_SET_NAME, "si5351_clk"); // cannot fail
    si5351pid = gettid();
    si5351_svr_start();
    return nullptr;
}
