/* Shared by the tests that call the engine. */
#include "tests/support.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "chip/fixed_table.h"
#include "chip/i2c_access.h"
#include "sim/i2c_bus_sim.h"
#include "trim/channels.h"

void reset_engine()
{
    static const STATE_T start = copy_state();
    std::copy(start.records.begin(), start.records.end(), stSi5351Conf);
    std::copy(start.steps.begin(), start.steps.end(), stStep);
    ch_param = {};
    g_s32EnableSi5351 = 1;
    I2C_Deinit();
    sim_reset();
    sim_set_recording(true);
    capture_log();
    take_log();
}

LINES take_writes()
{
    LINES writes;
    for (const SIM_TRANSACTION_T &t : sim_take_transactions()) {
        EXPECT_TRUE(t.addr == 0x60 && t.flags == 0 && t.len == 2) << int{t.reg};
        writes.push_back(std::to_string(t.reg) + ":" + to_hex(&t.value, 1));
    }
    return writes;
}

std::string read_registers(int first, int count)
{
    std::string bytes;
    for (int reg = first; reg < first + count; reg++)
        bytes.push_back(static_cast<char>(sim_read_register(static_cast<uint8_t>(reg))));
    return to_hex(bytes.data(), bytes.size());
}
