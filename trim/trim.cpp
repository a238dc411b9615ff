/* Trim stepping: the position in steps, the numerator that follows from it, the learned centre, and
 * the commands that move a channel. */
#include "trim/trim.h"

#include "chip/multisynth.h"
#include "chip/whole_frequency.h"
#include "log/log.h"
#include "trim/command_table.h"

static bool check_record(const SI5351_CONF_T *conf)
{
    if (conf == nullptr) return false;
    if (!is_channel(conf->ch)) {
        LOG_ERROR("invalid ch:%d", conf->ch);
        return false;
    }
    if (find_rate(conf->rate) == nullptr) {
        LOG_ERROR("invalid rate:%d", conf->rate);
        return false;
    }
    return true;
}

/* base + count * step in 32 bits. The console takes any step size: a far too large one wraps around
 * here, where signed numbers would be undefined. */
static int32_t move_num(int32_t base, int32_t count, int32_t step)
{
    return static_cast<int32_t>(static_cast<uint32_t>(base) +
                                static_cast<uint32_t>(count) * static_cast<uint32_t>(step));
}

/* The learned centre. A channel that comes back to 0 does not return to the nominal numerator, but
 * to one that lies a little on the side where it was held: each return moves it by a hundredth of a
 * step to that side. A learned centre on the other side of the nominal numerator, or more than 20
 * steps away, is forgotten: learning starts again at the nominal numerator. */
static int32_t learn_centre(const SI5351_CONF_T &conf, MOVE_E direction)
{
    const int32_t side = -direction;
    const int32_t edge = move_num(conf.defVal, side * CENTRE_BAND_STEPS, conf.step);
    const int32_t low = side > 0 ? conf.defVal : edge;
    const int32_t high = side > 0 ? edge : conf.defVal;
    const bool in_band = conf.xValue != 0 && low <= conf.xValue && conf.xValue <= high;
    return move_num(in_band ? conf.xValue : conf.defVal, side, conf.step / CENTRE_CREEP);
}

static bool is_at_end(const SI5351_CONF_T &conf, MOVE_E direction)
{
    if (direction == MOVE_FASTER && conf.count <= -TRIM_LIMIT) {
        LOG_INFO("mclk is max, count:%d", conf.count);
        return true;
    }
    if (direction == MOVE_SLOWER && conf.count >= TRIM_LIMIT) {
        LOG_INFO("mclk is min,ch:%d count:%d", conf.ch, conf.count);
        return true;
    }
    return false;
}

/* Results as of vx_si5351_conf_inc. */
static int step_record(SI5351_CONF_T *conf, MOVE_E direction)
{
    if (!check_record(conf)) return -1;
    if (is_at_end(*conf, direction)) return 1;
    conf->count += direction;
    if (conf->count == 0) {
        conf->xValue = learn_centre(*conf, direction);
        conf->value = conf->xValue;
    } else {
        conf->value = move_num(conf->defVal, conf->count, conf->step);
    }
    conf->num = static_cast<uint32_t>(conf->value);
    return 0;
}

int vx_si5351_conf_inc(SI5351_CONF_T *conf)
{
    return step_record(conf, MOVE_FASTER);
}

int vx_si5351_conf_dec(SI5351_CONF_T *conf)
{
    return step_record(conf, MOVE_SLOWER);
}

static void log_record(const SI5351_CONF_T &conf)
{
    LOG_INFO("si5351 ch:%d rate:%d value:%d def:%d status:%s", conf.ch, conf.rate, conf.value,
             conf.defVal, get_status_si53512(conf.status));
}

int vx_si5351_param_inc_dec2(SI5351_CONF_T *conf)
{
    if (conf == nullptr) return -1;
    log_record(*conf);
    setReg(conf->ch);
    return 0;
}

void write_output(int32_t ch)
{
    const SI5351_CONF_T &conf = channel_record(ch);
    Multisynth(output_block(ch), conf.mult, conf.num, conf.denom, conf.div);
}

void setReg(int32_t ch)
{
    if (!is_channel(ch)) {
        LOG_ERROR("setReg invalid ch:%d ", ch);
        return;
    }
    write_output(ch);
}

static void step_channel(int32_t ch, MOVE_E direction)
{
    SI5351_CONF_T *conf = &channel_record(ch);
    if (step_record(conf, direction) != 0) return;
    log_record(*conf);
    write_output(conf->ch);
}

static void step_to_centre(int32_t ch)
{
    const SI5351_CONF_T &conf = channel_record(ch);
    if (conf.count == 0) return;
    step_channel(ch, conf.count < 0 ? MOVE_SLOWER : MOVE_FASTER);
    LOG_INFO("si5351 ch:%d rate:%d reset to value:%d xvalue:%d def:%d", ch, conf.rate, conf.value,
             conf.xValue, conf.defVal);
}

void drive_channel(int32_t ch, VX_SI5351CMD_E command, bool reaches_chip)
{
    if (!is_channel(ch)) return;
    channel_record(ch).status = command;
    const MOVE_E move = command_row(command).move;
    if (!reaches_chip || move == NO_MOVE) return;
    if (move == MOVE_TO_CENTRE) return step_to_centre(ch);
    step_channel(ch, move);
}

int vx_si5351_increase(int32_t ch)
{
    if (is_channel(ch)) step_channel(ch, MOVE_FASTER);
    return 0;
}

int vx_si5351_decrease(int32_t ch)
{
    if (is_channel(ch)) step_channel(ch, MOVE_SLOWER);
    return 0;
}

int vx_si5351_reset_chn2(int32_t ch)
{
    if (is_channel(ch)) step_to_centre(ch);
    return 0;
}

void handle_reset_stat()
{
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        SI5351_CONF_T &conf = channel_record(ch);
        if (conf.status != VX_SI5351_SET_RESET) continue;
        step_to_centre(ch);
        if (conf.value == 0) conf.status = VX_SI5351_SET_PARAM;
    }
}

int vx_si5351_param_inc_dec(int ch, int /*unused1*/, int /*unused2*/)
{
    if (!is_channel(ch)) {
        LOG_ERROR("invalid ch:%d", ch);
        return 0;
    }
    const SI5351_CONF_T &conf = channel_record(ch);
    si5351aSetFrequency(ch, static_cast<uint32_t>(conf.defVal) + static_cast<uint32_t>(conf.value));
    return 0;
}
