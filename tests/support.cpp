/* Shared by the tests that call the engine. */
#include "tests/support.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <unistd.h>

#include "chip/fixed_table.h"
#include "chip/i2c_access.h"
#include "sim/i2c_bus_sim.h"
#include "trim/channels.h"

static const std::string log_path = "/tmp/si5351_test_log." + std::to_string(getpid());
static std::streamoff log_taken; // bytes of the log file already handed out

static void capture_log()
{
    if (!log4cpp::Category::getRoot().getAllAppenders().empty()) return;
    auto *layout = new log4cpp::PatternLayout();
    layout->setConversionPattern("%p %m%n");
    auto *appender = new log4cpp::FileAppender("capture", log_path, false);
    appender->setLayout(layout);
    log4cpp::Category::getRoot().setAppender(appender);
}

/* Cuts the place off a line that ends with one: " --[", source, ":", line number, "]". */
static bool cut_place(std::string *text)
{
    const size_t at = text->rfind(" --[");
    if (at == std::string::npos) return false;
    char source[16] = "";
    unsigned line = 0;
    int length = 0;
    const char *place = text->c_str() + at;
    if (sscanf(place, " --[%15[^:]:%u]%n", source, &line, &length) != 2 || line == 0) return false;
    if (strcmp(source, "vx_si5351") != 0 && strcmp(source, "sim") != 0) return false;
    if (place[length] != '\0') return false;
    text->resize(at);
    return true;
}

std::vector<std::string> take_log()
{
    std::ifstream file(log_path);
    file.seekg(log_taken);
    std::vector<std::string> lines;
    std::string text;
    for (std::string line; std::getline(file, line);) {
        log_taken += static_cast<std::streamoff>(line.size()) + 1;
        text += text.empty() ? line : "\n" + line; // a message may hold a line end itself
        if (!cut_place(&text)) continue;
        // The chip's own lines have tests of their own.
        if (text.rfind("INFO CLK", 0) != 0) lines.push_back(text);
        text.clear();
    }
    EXPECT_EQ(text, "") << "a line without its place";
    return lines;
}

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

std::vector<std::string> take_writes()
{
    std::vector<std::string> writes;
    for (const SIM_TRANSACTION_T &t : sim_take_transactions()) {
        char text[32];
        (void)snprintf(text, sizeof(text), "%d:%02X", t.reg, t.value);
        EXPECT_TRUE(t.addr == 0x60 && t.flags == 0 && t.len == 2) << text;
        writes.emplace_back(text);
    }
    return writes;
}

std::string read_registers(int first, int count)
{
    std::string text;
    for (int reg = first; reg < first + count; reg++) {
        char byte[8];
        (void)snprintf(byte, sizeof(byte), "%s%02X", reg > first ? " " : "",
                       sim_read_register(static_cast<uint8_t>(reg)));
        text += byte;
    }
    return text;
}
