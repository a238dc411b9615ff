/* The text dump: copies the engine's state under the lock and writes it as six lines. */
#include "console/text_dump.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include "log/log.h"
#include "trim/record_text.h"

static constexpr const char *DUMP_PATH = "/tmp/si5351.txt";
static constexpr size_t STEP_SIZE = 24; // "192000:-2147483648 "
static constexpr size_t TEXT_SIZE = 64 + CHANNEL_COUNT * RECORD_LINE_SIZE + RATE_COUNT * STEP_SIZE;

static size_t format_state(char *text, const STATE_T &state)
{
    char *end = stpcpy(text, "init 5351 conf\n");
    for (const SI5351_CONF_T &record : state.records)
        end += format_record_details(end, record);
    end = stpcpy(end, "5351 step conf\n");
    for (size_t i = 0; i < RATE_COUNT; i++) {
        end += snprintf(end, STEP_SIZE, "%s%d:%d", i > 0 ? " " : "", rate_rows[i].rate_hz,
                        state.steps[i]);
    }
    return static_cast<size_t>(stpcpy(end, "\n") - text);
}

int write_text_dump()
{
    char text[TEXT_SIZE];
    const size_t length = format_state(text, copy_state());
    const WRITE_E result = write_text_file(DUMP_PATH, O_TRUNC, text, length);
    if (result == WRITTEN) return 0;
    LOG_ERROR("%s %s fail, errno %d:%s", result == NOT_OPENED ? "open" : "write", DUMP_PATH, errno,
              strerror(errno));
    return result == NOT_OPENED ? -1 : 0;
}
