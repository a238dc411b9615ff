/* Rate change: puts a channel at a row of the rate table. Reset: steps it to its centre. */
#include "trim/rate.h"

#include "log/log.h"
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
    conf.value = static_cast<int32_t>(row->num);
    conf.defVal = conf.value;
    conf.count = 0;
    conf.step = trim_step(*row);
    conf.mult = row->mult;
    conf.num = row->num;
    conf.denom = RATIO_DENOM;
    conf.div = row->div;
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
    setReg(ch);
    return 0;
}

static void log_reset(const SI5351_CONF_T &conf, int32_t ch)
{
    LOG_INFO("si5351 ch:%d rate:%d reset to value:%d xvalue:%d def:%d", ch, conf.rate, conf.value,
             conf.xValue, conf.defVal);
}

int vx_si5351_reset_chn2(int32_t ch)
{
    if (!is_channel(ch)) return 0;
    const SI5351_CONF_T &conf = channel_record(ch);
    if (conf.count < 0) {
        vx_si5351_decrease(ch);
        log_reset(conf, ch);
    }
    if (conf.count > 0) {
        vx_si5351_increase(ch);
        log_reset(conf, ch);
    }
    return 0;
}

void handle_reset_stat()
{
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        SI5351_CONF_T &conf = channel_record(ch);
        if (conf.status != VX_SI5351_SET_RESET) continue;
        vx_si5351_reset_chn2(ch);
        if (conf.value == 0) conf.status = VX_SI5351_SET_PARAM;
    }
}
