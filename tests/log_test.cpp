/* The log: a line's suffix and the property file, good or bad. */
#include "log/log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <log4cpp/Category.hh>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/service_process.h"

static const std::string path = "/tmp/si5351_log_test.conf";

static std::string configure_and_log(const std::string &file, int *result)
{
    log4cpp::Category::getRoot().removeAllAppenders();
    testing::internal::CaptureStderr();
    *result = configure_logging(file.c_str());
    log_line(log4cpp::Priority::INFO, "here", 7, "%d", 42);
    return testing::internal::GetCapturedStderr();
}

TEST(Log, AFileThatCannotBeUsedSendsTheLogToStandardError)
{
    static const struct {
        const char *fault;
        const char *text; // null: a directory stands there
        const char *reason;
    } cases[] = {
        {"a directory read as empty", nullptr, "Unable to find category: rootCategory"},
        {"lines lost without a word",
         "rootCategory=INFO, lost\nappender.lost=RollingFileAppender\n"
         "appender.lost.layout=BasicLayout\nappender.lost.fileName=/nowhere/at/all.log\n",
         "its log file cannot be opened: No such file or directory"},
        {"our own category left silent",
         "rootCategory=INFO\ncategory.CATEGORY=ERROR, own\nadditivity.CATEGORY=false\n"
         "appender.own=FileAppender\nappender.own.layout=BasicLayout\n"
         "appender.own.fileName=/nowhere/at/all.log\n",
         "its log file cannot be opened: No such file or directory"},
        {"half a set-up left standing",
         "rootCategory=ERROR, good\ncategory.CATEGORY=INFO, good\ncategory.zzz=LOUD\n"
         "appender.good=FileAppender\nappender.good.layout=BasicLayout\n"
         "appender.good.fileName=/tmp/half.log\n",
         "unknown priority name: 'LOUD' for category 'zzz'"},
    };
    for (const auto &c : cases) {
        (void)remove(path.c_str());
        if (c.text == nullptr) {
            ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
        } else {
            std::ofstream(path) << c.text;
        }
        int result = 0;
        const std::string output = configure_and_log(path, &result);
        EXPECT_EQ(result, -1) << c.fault;
        EXPECT_EQ(output.substr(0, output.find('\n')),
                  "logging file " + path + ": " + c.reason + "; logging to standard error");
        EXPECT_EQ(count_text(output, "\n"), 2) << output;
        EXPECT_NE(output.find(" [INFO] 42 --[here:7]\n"), std::string::npos) << c.fault;
        EXPECT_EQ(read_file("/tmp/half.log"), "") << c.fault;
    }
    (void)remove(path.c_str());
}

static off_t file_size(const std::string &file)
{
    struct stat status = {};
    return stat(file.c_str(), &status) == 0 ? status.st_size : -1;
}

/* The file that boards get, with its log files put elsewhere: an event costs no flash, a failure
 * goes to both, and a long run keeps three files of 1 MiB at most. */
TEST(Log, TheBoardsFileSparesTheFlashAndIsOfBoundedSize)
{
    static const char *const places[][2] = {{"/run/si5351_app/si5351_app.log", "/tmp/memory.log"},
                                            {"/var/log/si5351_app.log", "/tmp/flash.log"}};
    std::string text = read_file(LOGGING_FILE);
    for (const auto &[board, here] : places) {
        ASSERT_NE(text.find(board), std::string::npos) << board;
        text.replace(text.find(board), strlen(board), here);
    }
    std::ofstream(path) << text;
    int result = -1;
    EXPECT_EQ(configure_and_log(path, &result), "");
    ASSERT_EQ(result, 0);
    const std::string line = read_file("/tmp/memory.log");
    EXPECT_EQ(line.rfind("INFO 20", 0), 0U) << line;
    EXPECT_NE(line.find(" 42 --[here:7]\n"), std::string::npos) << line;
    EXPECT_EQ(file_size("/tmp/flash.log"), 0);

    for (int i = 0; i < 5000; i++)
        log_line(log4cpp::Priority::ERROR, "here", 8, "%s", std::string(1000, 'x').c_str());
    log4cpp::Category::shutdown();
    for (const std::string log : {"/tmp/memory.log", "/tmp/flash.log"}) {
        for (const char *name : {"", ".1", ".2"}) {
            EXPECT_GT(file_size(log + name), 0) << log << name;
            EXPECT_LE(file_size(log + name), 1048576 + 2048) << log << name;
            (void)remove((log + name).c_str());
        }
        EXPECT_EQ(file_size(log + ".3"), -1) << log;
    }
    (void)remove(path.c_str());
}

static void fill(const std::string &file)
{
    std::ofstream filler(file);
    while (filler.write(std::string(4096, 'x').c_str(), 4096).flush())
        continue;
}

/* A stream that failed once, on a full disk, would stay failed. */
TEST(Log, WritesAgainOnceItsDiskHasRoom)
{
    if (unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "the kernel refuses a mount namespace";
    ASSERT_EQ(mount("tmpfs", "/mnt", "tmpfs", 0, "size=64k"), 0);
    const int standard_error = dup(STDERR_FILENO);
    const int fd = open("/mnt/log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(fd, STDERR_FILENO);
    EXPECT_EQ(configure_logging("/none"), -1);
    fill("/mnt/filler");
    for (int line = 0; line < 100; line++)
        log_line(log4cpp::Priority::INFO, "here", 7, "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(unlink("/mnt/filler"), 0);
    log_line(log4cpp::Priority::INFO, "here", 7, "room again");
    dup2(standard_error, STDERR_FILENO);
    EXPECT_NE(read_file("/mnt/log").find("room again --[here:7]\n"), std::string::npos);
    close(fd);
    close(standard_error);
}
