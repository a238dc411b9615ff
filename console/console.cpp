/* The debug console: the named pipe, and one table of what can be typed into it. */
#include "console/console.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "console/text_dump.h"
#include "log/log.h"
#include "trim/command_table.h"
#include "trim/rate.h"
#include "trim/trim.h"

static constexpr size_t READ_SIZE = 1024;
static constexpr unsigned RETRY_S = 1;
static constexpr size_t WORD_LIMIT = 31; // a longer first word takes no arguments
static constexpr const char *WHITE_SPACE = " \t\n\v\f\r";

/* What the two numbers after a keyword mean depends on the command; one that is missing or does not
 * parse keeps the command's default. */
struct ARGUMENTS_T {
    int32_t first;
    int32_t second;
};

struct KEYWORD_ROW_T {
    const char *keyword;
    const char *other; // a second keyword, or null
    int numbers;       // how many arguments are scanned
    ARGUMENTS_T defaults;
    VX_SI5351CMD_E command; // where the keyword is a command to a channel
    void (*act)(const KEYWORD_ROW_T &row, const ARGUMENTS_T &args);
};

static void enable_service(const KEYWORD_ROW_T & /*unused*/, const ARGUMENTS_T & /*unused*/)
{
    g_s32EnableSi5351 = 1;
    LOG_INFO("enable si5351");
}

static void disable_service(const KEYWORD_ROW_T & /*unused*/, const ARGUMENTS_T & /*unused*/)
{
    g_s32EnableSi5351 = 0;
    LOG_INFO("disable si5351");
}

static void dump_records(const KEYWORD_ROW_T & /*unused*/, const ARGUMENTS_T & /*unused*/)
{
    if (write_text_dump() == 0) LOG_INFO("dump si5351 param");
}

static void set_step(const KEYWORD_ROW_T & /*unused*/, const ARGUMENTS_T &args)
{
    const std::lock_guard lock(g_engine_lock);
    LOG_INFO("set si5351 rate:%d step:%d", args.first, args.second);
    const RATE_ROW_T *row = find_rate(args.first);
    if (row == nullptr) {
        LOG_ERROR("set step invalid rate:%d", args.first);
        return;
    }
    trim_step(*row) = args.second;
}

static void trim_channel(const KEYWORD_ROW_T &row, const ARGUMENTS_T &args)
{
    const std::lock_guard lock(g_engine_lock);
    LOG_INFO("ch:%d %s", args.first, get_status_si53512(row.command));
    drive_channel(args.first, row.command, true);
}

static void set_rate(const KEYWORD_ROW_T &row, const ARGUMENTS_T &args)
{
    const std::lock_guard lock(g_engine_lock);
    LOG_INFO("ch:%d rate:%d init", args.first, args.second);
    (void)vx_si5351_set_param(args.first, args.second); // logs a refusal
    set_chn_stat(args.first, row.command);
}

/* A text that begins with a keyword of a row, in upper or lower case, is the command of that row:
 * "yes" enables. No text can begin with keywords of two rows. */
// clang-format off
static constexpr KEYWORD_ROW_T keyword_rows[] = {
    {"y",    "enable",   0, {0, 0},     {},                  enable_service},
    {"n",    "disable",  0, {0, 0},     {},                  disable_service},
    {"dump", nullptr,    0, {0, 0},     {},                  dump_records},
    {"step", nullptr,    2, {1, 100},   {},                  set_step},
    {"inc",  "increase", 1, {1, 0},     VX_SI5351_SET_INC,   trim_channel},
    {"dec",  "decrease", 1, {1, 0},     VX_SI5351_SET_DEC,   trim_channel},
    {"rst",  "reset",    1, {1, 0},     VX_SI5351_SET_RESET, trim_channel},
    {"init", nullptr,    2, {1, 48000}, VX_SI5351_SET_PARAM, set_rate},
};
// clang-format on

static bool begins_with(const char *text, const char *keyword)
{
    return keyword != nullptr && strncasecmp(text, keyword, strlen(keyword)) == 0;
}

/* Reads a decimal number as scanf does, but refuses one that needs more than 32 bits. */
static bool scan_number(const char **text, int32_t *number)
{
    char *end = nullptr;
    errno = 0;
    const long value = strtol(*text, &end, 10);
    if (end == *text || errno == ERANGE || value < INT32_MIN || value > INT32_MAX) return false;
    *text = end;
    *number = static_cast<int32_t>(value);
    return true;
}

/* The keyword as typed, then the numbers; the first that does not parse ends the scan. */
static ARGUMENTS_T scan_arguments(const char *text, const KEYWORD_ROW_T &row)
{
    ARGUMENTS_T args = row.defaults;
    const size_t word = strcspn(text, WHITE_SPACE);
    if (word > WORD_LIMIT) return args;
    text += word;
    if (row.numbers > 0 && scan_number(&text, &args.first) && row.numbers > 1)
        (void)scan_number(&text, &args.second); // missing: the default stays
    return args;
}

void run_console_command(const char *text)
{
    if (text == nullptr) return;
    for (const KEYWORD_ROW_T &row : keyword_rows) {
        if (!begins_with(text, row.keyword) && !begins_with(text, row.other)) continue;
        row.act(row, scan_arguments(text, row));
        return;
    }
}

/* One read is one command, whatever it holds; the text is terminated. */
static bool read_command(int fd, char *text)
{
    memset(text, 0, READ_SIZE + 1);
    ssize_t count = -1;
    do {
        errno = 0;
        count = read(fd, text, READ_SIZE);
    } while (count < 0 && errno == EINTR);
    if (count > 0) return true;
    LOG_ERROR("read pipe %s fail, errno %d:%s", PIPE_PATH, errno, strerror(errno));
    return false;
}

/* After a kill the old pipe has no reader, and writers may wait for one. Opening it for reading
 * lets them go on; their texts are lost. */
static void remove_pipe()
{
    const int fd = open(PIPE_PATH, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    (void)unlink(PIPE_PATH); // usually there is none; if it stays, the next call fails
    if (fd >= 0) (void)close(fd);
}

int handle_cmd()
{
    remove_pipe();
    const int created = mkfifo(PIPE_PATH, 0777);
    if (created != 0) {
        LOG_ERROR("mkfifo %s, errno %d:%s", PIPE_PATH, errno, strerror(errno));
        return created;
    }
    // Opened for writing too: then the open does not wait for a writer, and no read ends because a
    // writer closes.
    const int fd = open(PIPE_PATH, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0774);
    if (fd < 0) {
        LOG_ERROR("open %s fail, errno %d:%s", PIPE_PATH, errno, strerror(errno));
        return 0;
    }
    char text[READ_SIZE + 1];
    while (read_command(fd, text))
        run_console_command(text);
    (void)close(fd); // only read from
    return 0;
}

void *debug_task(void * /*unused*/)
{
    (void)prctl(PR_SET_NAME, "debug_task"); // cannot fail
    LOG_INFO("audio debug_task id %ld !!!!", static_cast<long>(gettid()));
    for (;;) {
        (void)handle_cmd(); // has logged why it ended
        sleep(RETRY_S);
    }
}
