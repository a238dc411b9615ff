/* Faults of the bus and of the system under a running service: it goes on, keeps its records right,
 * says what failed, and drives the chip again once the fault is gone. */
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "sim/i2c_bus_sim.h"
#include "tests/engine_model.h"
#include "tests/service_process.h"

/* Bring-up makes 103 transfers, the commands below 16; the service opens the bus once more. */
static const struct {
    const char *name;
    SIM_FAULTS_T faults;
    int not_opened, not_sent; // lines in the log
    bool from_start;
    bool right; // the commands reach the chip all the same
} bus_faults[] = {
    {"device absent, appears later", {1, 0, 0, 0}, 120, 119, true, false},
    {"device vanishes", {1, 1, 0, 0}, 0, 16, false, false},
    {"no acknowledge from the start", {0, 1, 0, 0}, 0, 119, true, false},
    {"no acknowledge", {0, 1, 0, 0}, 0, 16, false, false},
    {"no acknowledge for the 7th write", {0, 0, 7, 0}, 0, 1, false, false},
    {"no acknowledge for each third write", {0, 0, 0, 0, 3}, 0, 5, false, false},
    {"slow bus", {0, 0, 0, 20000}, 0, 0, false, true},
};

TEST(BusFaults, RecordsStayRightAndTheNextSettingReachesTheChip)
{
    SIM_FILE_T *chip = map_chip_file();
    ASSERT_NE(chip, nullptr);
    for (const auto &fault : bus_faults) {
        *chip = {};
        if (fault.from_start) chip->faults = fault.faults;
        const SERVICE_PROCESS_T process = start_service(SI5351_APP_SIM);
        const int client = open_client();
        await_port();
        MODEL_T model;
        EXPECT_EQ(fetch_dump(client), model_dump(model)) << fault.name;

        chip->faults = fault.faults;
        const auto command = [&](uint32_t cmd, uint32_t ch, int32_t arg) {
            send_words(client, {cmd, ch, static_cast<uint32_t>(arg), 0});
            apply_command(&model, cmd, static_cast<int32_t>(ch), arg, 0);
            EXPECT_EQ(cmd == 0x1234 ? receive_reply(client).size() : 64U, 64U) << fault.name;
        };
        command(0x1235, 2, 0);
        command(0x1234, 1, 44100);
        command(0x1238, 3, 100);
        EXPECT_EQ(fetch_dump(client), model_dump(model)) << fault.name;
        EXPECT_EQ(read_file("/tmp/genlock.json"), model_status(model)) << fault.name;
        EXPECT_EQ(chip_registers() == model_registers(model), fault.right) << fault.name;
        const std::string log = read_output(process);
        EXPECT_EQ(count_text(log, "Unable to open i2c control file:"), fault.not_opened)
            << fault.name;
        EXPECT_EQ(count_text(log, "Unable to send data --["), fault.not_sent) << fault.name;
        EXPECT_EQ(count_text(log, "I2c_Write Failed at addr=[0x60]\n --["), fault.not_sent)
            << fault.name;

        chip->faults = {};
        for (const uint32_t ch : {1U, 2U, 3U})
            command(0x1234, ch, 176400);
        command(0x1236, 3, 0);
        EXPECT_EQ(fetch_dump(client), model_dump(model)) << fault.name;
        EXPECT_EQ(chip_registers(), model_registers(model)) << fault.name;
        EXPECT_EQ(count_text(read_output(process), "Unable to send data --["), fault.not_sent);
        close(client);
        stop_service(process);
    }
}

static SERVICE_PROCESS_T start_with_refused_thread(const char *number)
{
    setenv("REFUSED_THREAD", number, 1);
    setenv("LD_PRELOAD", REFUSE_THREAD, 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1); // the library comes before its runtime
    SERVICE_PROCESS_T process = start_service(SI5351_APP_SIM);
    for (const char *name : {"REFUSED_THREAD", "LD_PRELOAD", "ASAN_OPTIONS"})
        unsetenv(name);
    return process;
}

TEST(ThreadFaults, WithoutItsConsoleTheServiceAnswers)
{
    (void)unlink("/tmp/si5351"); // of an earlier one
    const SERVICE_PROCESS_T process = start_with_refused_thread("1");
    await_port();
    const int client = open_client();
    EXPECT_EQ(fetch_dump(client), model_dump(MODEL_T{}));
    EXPECT_EQ(count_text(read_output(process), "ERROR] create debug_task err --[main:"), 1);
    EXPECT_NE(access("/tmp/si5351", F_OK), 0) << "there is a console";
    close(client);
    stop_service(process);
}

TEST(ThreadFaults, WithoutItsServiceTheConsoleObeys)
{
    const SERVICE_PROCESS_T process = start_with_refused_thread("2");
    const std::string line = "ERROR]  audio si5351_task thread create fail --[main:";
    await_output(process, line);
    type_text("inc 2\n");
    await_output(process, "CLK1 runs at 6144124.14 Hz");
    EXPECT_EQ(count_text(read_output(process), line), 1);
    EXPECT_EQ(count_drops(), -1) << "the port is bound";
    stop_service(process);
}
