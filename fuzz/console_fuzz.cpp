/* Texts to the console, each line of an input a command of its own, and what holds of the engine
 * whatever was typed. */
#include "console/console.h"

#include <cstdlib>
#include <string_view>

#include "fuzz/engine_fuzz.h"
#include "trim/trim.h"

static constexpr size_t READ_SIZE = 1024; // the console takes no more at once
static constexpr int TEXT_LIMIT = 64;     // in one input

/* A supported rate has the numerator in the record, and the chip runs by the record. */
static void check_records()
{
    const auto records = copy_state().records;
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        const SI5351_CONF_T &record = records[static_cast<size_t>(ch - 1)];
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

/* Writes every channel anew: registers that then differ had missed a command. */
static void check_chip()
{
    const std::string before = chip_registers();
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++)
        setReg(ch);
    require_same(before, chip_registers(), "registers of the records");
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
    check_chip();
    return 0;
}
