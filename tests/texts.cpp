/* Shared by all tests: files, registers and the log as texts. */
#include "tests/texts.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <unistd.h>

static const std::string log_path = "/tmp/test_log." + std::to_string(getpid());

std::string read_file(const std::string &path)
{
    if (!std::filesystem::is_regular_file(path)) return "";
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

int count_text(const std::string &all, const std::string &text)
{
    int times = 0;
    for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size())
        times++;
    return times;
}

std::string to_hex(const void *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; i++) {
        char byte[8];
        (void)snprintf(byte, sizeof(byte), "%s%02X", i > 0 ? " " : "",
                       static_cast<const uint8_t *>(bytes)[i]);
        text += byte;
    }
    return text;
}

void capture_log()
{
    log4cpp::Category &category = log4cpp::Category::getInstance("CATEGORY"); // as boards name it
    if (!category.getAllAppenders().empty()) return;
    auto *layout = new log4cpp::PatternLayout(); // log4cpp owns layout and appender
    layout->setConversionPattern("%p %m%n");
    auto *appender = new log4cpp::FileAppender("capture", log_path);
    appender->setLayout(layout);
    category.setAppender(appender);
}

std::string read_log()
{
    return read_file(log_path);
}

LINES take_log(const std::string &source)
{
    const std::string log = read_log();
    (void)truncate(log_path.c_str(), 0);
    LINES lines;
    size_t start = 0;
    for (size_t at = 0; (at = log.find(" --[", start)) != std::string::npos;) {
        char name[16] = "";
        unsigned line = 0;
        int length = 0;
        (void)sscanf(log.c_str() + at, " --[%15[a-z0-9_]:%u]%n", name, &line, &length);
        EXPECT_GT(line, 0U) << log.substr(at, 30);
        if (name == source) lines.push_back(log.substr(start, at - start));
        start = at + static_cast<size_t>(length) + 1; // the line end behind it
    }
    EXPECT_EQ(start, log.size()) << "a line without its place: " << log.substr(start);
    return lines;
}
