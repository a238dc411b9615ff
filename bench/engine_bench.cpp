/* What the parts of a command cost on their own, on a bus that is one system call a transfer. */
#include <benchmark/benchmark.h>
#include <log4cpp/Category.hh>

#include "chip/multisynth.h"
#include "genlock/genlock.h"
#include "service/status_file.h"
#include "trim/rate.h"
#include "trim/trim.h"

static void trim_record(benchmark::State &state)
{
    while (state.KeepRunning()) {
        (void)vx_si5351_conf_inc(&stSi5351Conf[0]);
        (void)vx_si5351_conf_dec(&stSi5351Conf[0]);
    }
}
BENCHMARK(trim_record);

static void pack_block(benchmark::State &state)
{
    DIVIDER_T divider = {8862, 1003550, 1048575};
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(divider); // or it would be packed by the compiler
        benchmark::DoNotOptimize(pack_divider(divider, 0x10));
    }
}
BENCHMARK(pack_block);

static void write_multisynth(benchmark::State &state)
{
    while (state.KeepRunning())
        Multisynth(42, 73, 253600, 1048575, 1);
}
BENCHMARK(write_multisynth);

static void trim_channel(benchmark::State &state)
{
    while (state.KeepRunning()) {
        vx_si5351_increase(1);
        vx_si5351_decrease(1);
    }
}
BENCHMARK(trim_channel);

static void change_rate(benchmark::State &state)
{
    while (state.KeepRunning())
        (void)vx_si5351_set_param(1, 44100);
}
BENCHMARK(change_rate);

static void rewrite_status_file(benchmark::State &state)
{
    while (state.KeepRunning())
        (void)dump2json();
}
BENCHMARK(rewrite_status_file);

/* Transfers of 256 frames in and out, each told: 375 a second at 48000 Hz. */
static void update_follower(benchmark::State &state)
{
    GENLOCK_T lock;
    (void)genlock_init(&lock, 48000, 4096, 0);
    double now = 0;
    int32_t fill = 1920;
    while (state.KeepRunning()) {
        now += 1 / 375.0;
        fill = 4096 - fill; // 128 frames either side of the target
        benchmark::DoNotOptimize(genlock_update(&lock, fill, now));
    }
}
BENCHMARK(update_follower);

int main(int argc, char **argv)
{
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::ERROR);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
