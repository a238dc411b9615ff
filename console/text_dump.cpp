/* The text dump: copies the engine's state under the lock and writes it as six lines. */
#include "console/text_dump.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "log/log.h"
#include "trim/channels.h"

static constexpr const char *DUMP_PATH = "/tmp/si5351.txt";

struct SNAPSHOT_T {
    SI5351_CONF_T records[CHANNEL_COUNT];
    int32_t steps[RATE_COUNT];
};

static SNAPSHOT_T copy_state()
{
    SNAPSHOT_T copy;
    const std::lock_guard lock(g_engine_lock);
    std::copy(std::begin(stSi5351Conf), std::end(stSi5351Conf), copy.records);
    std::copy(std::begin(stStep), std::end(stStep), copy.steps);
    return copy;
}

static void print_state(FILE *file, const SNAPSHOT_T &state)
{
    (void)fputs("init 5351 conf\n", file); // so short a text fails at the close
    for (const SI5351_CONF_T &record : state.records) {
        char line[RECORD_LINE_SIZE];
        format_record_details(line, record);
        (void)fputs(line, file);
    }
    (void)fputs("5351 step conf\n", file);
    for (int i = 0; i < RATE_COUNT; i++) {
        (void)fprintf(file, "%s%d:%d", i > 0 ? " " : "", rate_rows[i].rate_hz, state.steps[i]);
    }
    (void)fputs("\n", file);
}

static FILE *open_dump_file()
{
    const int fd = open(DUMP_PATH, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    FILE *file = fdopen(fd, "w+");
    if (file == nullptr) (void)close(fd);
    return file;
}

int write_text_dump()
{
    FILE *file = open_dump_file();
    if (file == nullptr) {
        LOG_ERROR("open %s fail, errno %d:%s", DUMP_PATH, errno, strerror(errno));
        return -1;
    }
    print_state(file, copy_state());
    const int failure = fclose(file) == 0 ? 0 : errno;
    if (failure != 0)
        LOG_ERROR("write %s fail, errno %d:%s", DUMP_PATH, failure, strerror(failure));
    return 0;
}
