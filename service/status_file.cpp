/* The status file: builds the text from one instant's records, replaces the file by a rename. */
#include "service/status_file.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "trim/channels.h"

static constexpr const char *STATUS_FILE = "/tmp/genlock.json";
static constexpr const char *NEW_FILE = "/tmp/fifo.json";
static constexpr size_t TEXT_SIZE = 1024; // 318 are the most it can take
static constexpr int PPM_MAX_STEP = 300;

static size_t append_channel(char *text, size_t length, int32_t ch, const SI5351_CONF_T &record)
{
    const int added = snprintf(text + length, TEXT_SIZE - length,
                               "%s\"%s\":{\"fifoTotal\":%d,\"fifoUsed\":%d,\"ppmAdjusted\":%d,"
                               "\"ppmMaxStep\":%d}",
                               ch > 1 ? "," : "", channel_rows[ch - 1].name, record.fifoTotal,
                               record.fifoUsed, record.value, PPM_MAX_STEP);
    return length + static_cast<size_t>(added);
}

static size_t build_text(char *text)
{
    const RECORDS_T records = copy_records();
    auto length = static_cast<size_t>(snprintf(text, TEXT_SIZE, "{\"genlock\":{"));
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        length = append_channel(text, length, ch, records[static_cast<size_t>(ch - 1)]);
    }
    return length + static_cast<size_t>(snprintf(text + length, TEXT_SIZE - length, "}}"));
}

static bool write_whole(int fd, const char *text, size_t length)
{
    FILE *file = fdopen(fd, "w+");
    if (file == nullptr) {
        (void)close(fd);
        return false;
    }
    const bool written = fwrite(text, 1, length, file) == length;
    return fclose(file) == 0 && written;
}

static void replace_file(const char *text, size_t length)
{
    const int fd = open(NEW_FILE, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return;
    if (write_whole(fd, text, length)) {
        (void)rename(NEW_FILE, STATUS_FILE); // on failure the earlier file stays
    } else {
        (void)unlink(NEW_FILE); // half a text is of no use, and a full disk wants its room back
    }
}

int dump2json()
{
    auto *text = static_cast<char *>(malloc(TEXT_SIZE));
    if (text == nullptr) return -1;
    replace_file(text, build_text(text));
    free(text);
    return 0;
}
