/* The channel records, the rate and step tables, and the words for command codes. */
#include "trim/channels.h"

#include <iterator>
#include <unistd.h>

static constexpr useconds_t DUMP_PAUSE_US = 1000;

struct STATUS_WORD_T {
    VX_SI5351CMD_E status;
    const char *word;
};
// clang-format off
static constexpr STATUS_WORD_T status_words[] = {
    {VX_SI5351_SET_PARAM, "set param"},
    {VX_SI5351_SET_INC,   "increase"},
    {VX_SI5351_SET_DEC,   "decrease"},
    {VX_SI5351_SET_RESET, "reset"},
    {VX_FIFO_REPORT,      "report"},
    {VX_SI5351_DUMP,      "dump"},
};
// clang-format on

/* Every channel starts at the 48000 Hz setting, as if just set to it. */
static constexpr SI5351_CONF_T start_record(int32_t ch)
{
    const RATE_ROW_T &row = rate_rows[1];
    static_assert(rate_rows[1].rate_hz == 48000, "the setting at start");
    SI5351_CONF_T record{};
    record.ch = ch;
    record.rate = row.rate_hz;
    record.value = record.defVal = static_cast<int32_t>(row.num);
    record.step = row.start_step;
    record.status = VX_SI5351_SET_PARAM;
    record.mult = row.mult;
    record.num = row.num;
    record.denom = RATIO_DENOM;
    record.div = row.div;
    return record;
}

static_assert(RATE_COUNT == 6, "a trim step for each rate below");
std::mutex g_engine_lock;
SI5351_CONF_T stSi5351Conf[CHANNEL_COUNT] = {start_record(1), start_record(2), start_record(3)};
int32_t stStep[RATE_COUNT] = {rate_rows[0].start_step, rate_rows[1].start_step,
                              rate_rows[2].start_step, rate_rows[3].start_step,
                              rate_rows[4].start_step, rate_rows[5].start_step};
std::atomic<int32_t> g_s32EnableSi5351{1};
std::atomic<int64_t> si5351pid{0};

const RATE_ROW_T *find_rate(int32_t rate_hz)
{
    for (const RATE_ROW_T &row : rate_rows) {
        if (row.rate_hz == rate_hz) return &row;
    }
    return nullptr;
}

int32_t &trim_step(const RATE_ROW_T &row)
{
    return stStep[&row - rate_rows];
}

bool is_channel(int32_t ch)
{
    return ch >= 1 && ch <= CHANNEL_COUNT;
}

SI5351_CONF_T &channel_record(int32_t ch)
{
    return stSi5351Conf[ch - 1];
}

RECORDS_T copy_records()
{
    const std::lock_guard lock(g_engine_lock);
    return {stSi5351Conf[0], stSi5351Conf[1], stSi5351Conf[2]};
}

SI5351_CONF_T copy_record(int32_t ch)
{
    const std::lock_guard lock(g_engine_lock);
    return channel_record(ch);
}

const char *get_status_si53512(VX_SI5351CMD_E status)
{
    for (const STATUS_WORD_T &row : status_words) {
        if (row.status == status) return row.word;
    }
    return "unknonw"; // as every reader of logs and dumps knows it
}

size_t format_record(char *line, const SI5351_CONF_T &record)
{
    const int length =
        snprintf(line, RECORD_LINE_SIZE, "ch:%d rate:%d value:%d status:%s\n", record.ch,
                 record.rate, record.value, get_status_si53512(record.status));
    return static_cast<size_t>(length);
}

void format_record_details(char *line, const SI5351_CONF_T &record)
{
    (void)snprintf(line, RECORD_LINE_SIZE, // seven numbers of 11 characters, four of 10: fits
                   "ch:%d rate:%d value:%d xValue:%d defVal:%d count:%d step:%d status:%s mult:%u "
                   "num:%u denom:%u div:%u\n",
                   record.ch, record.rate, record.value, record.xValue, record.defVal, record.count,
                   record.step, get_status_si53512(record.status), record.mult, record.num,
                   record.denom, record.div);
}

int vx_si5351_dump(FILE *stream)
{
    if (stream == nullptr) return -1;
    (void)fprintf(stream, "si5351 pid:%ld \n", static_cast<long>(si5351pid));
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        char line[RECORD_LINE_SIZE];
        format_record(line, copy_record(ch));
        (void)fputs(line, stream);
        usleep(DUMP_PAUSE_US);
    }
    return fprintf(stream, "\n");
}

int set_fifo_stat(int32_t ch, int32_t total, int32_t used)
{
    if (!is_channel(ch)) return 0;
    channel_record(ch).fifoTotal = total;
    channel_record(ch).fifoUsed = used;
    return 0;
}

int set_chn_stat(int32_t ch, VX_SI5351CMD_E status)
{
    if (is_channel(ch)) channel_record(ch).status = status;
    return 0;
}
