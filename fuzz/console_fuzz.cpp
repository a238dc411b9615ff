/* Texts to the console, each line of an input a command of its own, and what holds of the engine
 * whatever was typed. */
#include "console/console.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "sim/i2c_bus_sim.h"
#include "trim/bring_up.h"
#include "trim/trim.h"

static constexpr size_t READ_SIZE = 1024; // the console takes no more at once
static constexpr int TEXT_LIMIT = 64;     // in one input

static const STATE_T start = copy_state();

/* Records, step table, switch, bus and simulated chip as after bring-up. */
static void reset_engine()
{
    std::copy(start.records.begin(), start.records.end(), stSi5351Conf);
    std::copy(start.steps.begin(), start.steps.end(), stStep);
    g_s32EnableSi5351 = 1;
    sim_reset();
    const std::lock_guard lock(g_engine_lock);
    (void)vx_si5351_init(); // always 1
}

/* Ends the fuzzer, which then saves its input, unless a condition holds. */
static void require(bool holds, const char *what)
{
    if (holds) return;
    (void)fprintf(stderr, "wrong: %s\n", what);
    abort();
}

/* A supported rate has the numerator in the record, and the chip runs by the record. */
static void check_records()
{
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        const SI5351_CONF_T &record = channel_record(ch);
        require(record.ch == ch, "channel");
        require(std::abs(record.count) <= 24, "trim range");
        require(record.denom == RATIO_DENOM, "denominator");
        if (find_rate(record.rate) == nullptr) {
            require(record.value == 0 && record.xValue == 0, "refused rate");
        } else {
            require(record.num == static_cast<uint32_t>(record.value), "numerator");
        }
    }
    require(g_s32EnableSi5351 == 0 || g_s32EnableSi5351 == 1, "switch");
}

static std::vector<uint8_t> read_registers()
{
    std::vector<uint8_t> registers(SI5351_REGISTER_COUNT);
    for (size_t reg = 0; reg < registers.size(); reg++)
        registers[reg] = sim_read_register(static_cast<uint8_t>(reg));
    return registers;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    reset_engine();
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    for (int texts = 0; !rest.empty() && texts < TEXT_LIMIT; texts++) {
        const size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        run_console_command(std::string(rest.substr(0, std::min(end, READ_SIZE))).c_str());
        rest.remove_prefix(end);
        check_records();
    }
    const std::vector<uint8_t> before = read_registers();
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++)
        setReg(ch);
    require(before == read_registers(), "a register missed a command");
    return 0;
}
