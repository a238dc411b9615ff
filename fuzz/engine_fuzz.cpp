/* Shared by the fuzzers that drive the engine. */
#include "fuzz/engine_fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "sim/i2c_bus_sim.h"
#include "trim/bring_up.h"
#include "trim/channels.h"

/* The dump reply paces its lines; a fuzzer has no time to lose. Takes the place of libc's. */
extern "C" int usleep(useconds_t /*unused*/)
{
    return 0;
}

static const STATE_T start = copy_state();

void reset_engine()
{
    std::copy(start.records.begin(), start.records.end(), stSi5351Conf);
    std::copy(start.steps.begin(), start.steps.end(), stStep);
    g_s32EnableSi5351 = 1;
    sim_reset();
    const std::lock_guard lock(g_engine_lock);
    (void)vx_si5351_init(); // always 1
}

std::string chip_registers()
{
    std::string text;
    for (uint8_t reg = 42; reg < 66; reg++) {
        char byte[8];
        (void)snprintf(byte, sizeof(byte), "%s%02X", reg > 42 ? " " : "", sim_read_register(reg));
        text += byte;
    }
    return text;
}

void require(bool holds, const char *what)
{
    if (holds) return;
    (void)fprintf(stderr, "wrong: %s\n", what);
    abort();
}

void require_same(const std::string &found, const std::string &wanted, const char *what)
{
    if (found == wanted) return;
    (void)fprintf(stderr, "found:\n%s\nwanted:\n%s\n", found.c_str(), wanted.c_str());
    require(false, what);
}
