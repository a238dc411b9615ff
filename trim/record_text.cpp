/* The records as text, and files made of a text. */
#include "trim/record_text.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "trim/command_table.h"

static constexpr useconds_t DUMP_PAUSE_US = 1000;

size_t format_record(char *line, const SI5351_CONF_T &record)
{
    const int length =
        snprintf(line, RECORD_LINE_SIZE, "ch:%d rate:%d value:%d status:%s\n", record.ch,
                 record.rate, record.value, get_status_si53512(record.status));
    return static_cast<size_t>(length);
}

size_t format_record_details(char *line, const SI5351_CONF_T &record)
{
    const int length =
        snprintf(line, RECORD_LINE_SIZE, // seven numbers of 11 characters, four of 10: fits
                 "ch:%d rate:%d value:%d xValue:%d defVal:%d count:%d step:%d status:%s mult:%u "
                 "num:%u denom:%u div:%u\n",
                 record.ch, record.rate, record.value, record.xValue, record.defVal, record.count,
                 record.step, get_status_si53512(record.status), record.mult, record.num,
                 record.denom, record.div);
    return static_cast<size_t>(length);
}

int vx_si5351_dump(FILE *stream)
{
    if (stream == nullptr) return -1;
    (void)fprintf(stream, "si5351 pid:%ld \n", static_cast<long>(si5351pid));
    for (size_t i = 0; i < CHANNEL_COUNT; i++) {
        char line[RECORD_LINE_SIZE];
        format_record(line, copy_state().records[i]);
        (void)fputs(line, stream);
        usleep(DUMP_PAUSE_US);
    }
    return fprintf(stream, "\n");
}

WRITE_E write_text_file(const char *path, int flag, const char *text, size_t length)
{
    const int fd = open(path, O_RDWR | O_CREAT | flag | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return NOT_OPENED;
    errno = ENOSPC; // the reason when a write ends early without one
    const bool whole = write(fd, text, length) == static_cast<ssize_t>(length);
    const int failure = errno;
    const bool closed = close(fd) == 0;
    if (!whole) errno = failure;
    return whole && closed ? WRITTEN : NOT_WHOLE;
}
