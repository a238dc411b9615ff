/* The status file: builds the text from one instant's records, replaces the file by a rename. */
#include "service/status_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

#include "trim/record_text.h"

static constexpr const char *STATUS_FILE = "/tmp/genlock.json";
static constexpr const char *NEW_FILE = "/tmp/fifo.json";
static constexpr size_t TEXT_SIZE = 1024; // the text has at most 318 bytes
static constexpr int PPM_MAX_STEP = 300;

static constexpr const char *channel_names[] = {"hdmi", "analog", "earc/spdif"};
static_assert(std::size(channel_names) == CHANNEL_COUNT, "a name for each channel");

STATUS_FAULT_T g_status_fault;

static size_t append_channel(char *text, size_t length, size_t i, const SI5351_CONF_T &record)
{
    const int added = snprintf(text + length, TEXT_SIZE - length,
                               "%s\"%s\":{\"fifoTotal\":%d,\"fifoUsed\":%d,\"ppmAdjusted\":%d,"
                               "\"ppmMaxStep\":%d}",
                               i > 0 ? "," : "", channel_names[i], record.fifoTotal,
                               record.fifoUsed, record.value, PPM_MAX_STEP);
    return length + static_cast<size_t>(added);
}

static size_t build_text(char *text)
{
    const STATE_T state = copy_state();
    auto length = static_cast<size_t>(snprintf(text, TEXT_SIZE, "{\"genlock\":{"));
    for (size_t i = 0; i < CHANNEL_COUNT; i++) {
        length = append_channel(text, length, i, state.records[i]);
    }
    return length + static_cast<size_t>(snprintf(text + length, TEXT_SIZE - length, "}}"));
}

/* @return what went wrong; then the earlier file stays */
static STATUS_FAULT_T replace_file(const char *text, size_t length)
{
    (void)remove(NEW_FILE); // usually there is none; if it stays, the next call fails
    const WRITE_E result = write_text_file(NEW_FILE, O_EXCL, text, length);
    const int failure = errno;
    // Half a text is of no use; on a full disk this frees its space again.
    if (result == NOT_WHOLE) (void)unlink(NEW_FILE);
    if (result != WRITTEN) return {NEW_FILE, failure};
    if (rename(NEW_FILE, STATUS_FILE) != 0) return {STATUS_FILE, errno};
    return {};
}

int dump2json()
{
    auto *text = static_cast<char *>(malloc(TEXT_SIZE));
    if (text == nullptr) return -1;
    g_status_fault = replace_file(text, build_text(text));
    free(text);
    return 0;
}
