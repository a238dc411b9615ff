/* Rate change: puts a channel at a row of the rate table. */
#include "trim/rate.h"

#include "chip/fixed_table.h"
#include "log/log.h"
#include "trim/record_text.h"
#include "trim/trim.h"

int vx_si5351_set_conf(int32_t ch, int32_t rate_hz)
{
    if (!is_channel(ch)) {
        LOG_ERROR("invalid ch:%d", ch);
        return -1;
    }
    SI5351_CONF_T &conf = channel_record(ch);
    conf.ch = ch;
    conf.rate = rate_hz;
    conf.value = 0;
    conf.xValue = 0;

    const RATE_ROW_T *row = find_rate(rate_hz);
    if (row == nullptr) {
        LOG_ERROR("invalid rate:%d", rate_hz);
        return -1;
    }
    set_to_rate(&conf, *row, trim_step(*row));
    char line[RECORD_LINE_SIZE];
    format_record_details(line, conf);
    LOG_INFO("init %s", line);
    return 0;
}

int vx_si5351_set_param(int32_t ch, int32_t rate_hz)
{
    const int result = vx_si5351_set_conf(ch, rate_hz);
    if (result != 0) {
        LOG_ERROR("set 5351 conf err, ret:%d", result);
        return -1;
    }
    write_output(ch);
    return 0;
}

int vx_si5351_reset_chn(int ch)
{
    if (!is_channel(ch)) return 0;
    const SI5351_CONF_T &conf = channel_record(ch);
    if (conf.value == 0) return 0;
    (void)vx_si5351_set(ch, conf.rate); // a record with a value has a supported rate
    (void)vx_si5351_set_conf(ch, conf.rate);
    LOG_INFO("si5351 ch:%d rate:%d reset", ch, conf.rate);
    return 0;
}
