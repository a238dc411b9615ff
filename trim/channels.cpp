/* The channel records and the table of trim steps. */
#include "trim/channels.h"

#include <algorithm>
#include <iterator>

/* Every channel starts at this setting, as if just set to it. */
static constexpr const RATE_ROW_T &start_rate = *find_rate(48000);

static constexpr SI5351_CONF_T start_record(int32_t ch)
{
    SI5351_CONF_T record{};
    record.ch = ch;
    record.status = VX_SI5351_SET_PARAM;
    set_to_rate(&record, start_rate, start_rate.start_step);
    return record;
}

std::mutex g_engine_lock;
static_assert(CHANNEL_COUNT == 3, "a record for each channel below");
SI5351_CONF_T stSi5351Conf[CHANNEL_COUNT] = {start_record(1), start_record(2), start_record(3)};
static_assert(RATE_COUNT == 6, "a trim step for each rate below");
int32_t stStep[RATE_COUNT] = {rate_rows[0].start_step, rate_rows[1].start_step,
                              rate_rows[2].start_step, rate_rows[3].start_step,
                              rate_rows[4].start_step, rate_rows[5].start_step};
std::atomic<int32_t> g_s32EnableSi5351{1};
std::atomic<int64_t> si5351pid{0};

int32_t &trim_step(const RATE_ROW_T &row)
{
    return stStep[&row - rate_rows];
}

SI5351_CONF_T &channel_record(int32_t ch)
{
    return stSi5351Conf[ch - 1];
}

STATE_T copy_state()
{
    STATE_T copy;
    const std::lock_guard lock(g_engine_lock);
    std::copy(std::begin(stSi5351Conf), std::end(stSi5351Conf), copy.records.begin());
    std::copy(std::begin(stStep), std::end(stStep), copy.steps.begin());
    return copy;
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
