/* Trim stepping: the position in steps, the numerator that follows from it, the learned centre. */
#include "trim/trim.h"

#include "chip/multisynth.h"
#include "log/log.h"

static constexpr int32_t TRIM_LIMIT = 24;        // steps either way of the centre
static constexpr int32_t CENTRE_BAND_STEPS = 20; // how far a learned centre may wander
static constexpr int32_t CENTRE_CREEP = 100;     // a return to 0 moves it by step / 100

/* Sign of the change of count and numerator: a larger numerator makes a slower clock. */
enum TRIM_E : int32_t { TRIM_UP = -1, TRIM_DOWN = 1 };

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

/* base + count * step in 32 bits: the console takes any step size, and a far too large one must
 * wrap around as the chip's own field does, not be undefined. */
static int32_t move_num(int32_t base, int32_t count, int32_t step)
{
    return static_cast<int32_t>(static_cast<uint32_t>(base) +
                                static_cast<uint32_t>(count) * static_cast<uint32_t>(step));
}

/* The centre that a channel returns to creeps towards the side it had to be held on: the side it
 * comes from, opposite to the step that brings it back. A centre on the other side of the nominal
 * numerator, or outside the band, starts again beside the nominal one. */
static int32_t learn_centre(const SI5351_CONF_T &conf, TRIM_E direction)
{
    const int32_t side = -direction;
    const int32_t edge = move_num(conf.defVal, side * CENTRE_BAND_STEPS, conf.step);
    const int32_t low = side > 0 ? conf.defVal : edge;
    const int32_t high = side > 0 ? edge : conf.defVal;
    const bool in_band = conf.xValue != 0 && low <= conf.xValue && conf.xValue <= high;
    return move_num(in_band ? conf.xValue : conf.defVal, side, conf.step / CENTRE_CREEP);
}

static void step_trim(SI5351_CONF_T *conf, TRIM_E direction)
{
    conf->count += direction;
    if (conf->count == 0) {
        conf->xValue = learn_centre(*conf, direction);
        conf->value = conf->xValue;
    } else {
        conf->value = move_num(conf->defVal, conf->count, conf->step);
    }
    conf->num = static_cast<uint32_t>(conf->value);
}

int vx_si5351_conf_inc(SI5351_CONF_T *conf)
{
    if (!check_record(conf)) return -1;
    if (conf->count <= -TRIM_LIMIT) {
        LOG_INFO("mclk is max, count:%d", conf->count);
        return 1;
    }
    step_trim(conf, TRIM_UP);
    return 0;
}

int vx_si5351_conf_dec(SI5351_CONF_T *conf)
{
    if (!check_record(conf)) return -1;
    if (conf->count >= TRIM_LIMIT) {
        LOG_INFO("mclk is min,ch:%d count:%d", conf->ch, conf->count);
        return 1;
    }
    step_trim(conf, TRIM_DOWN);
    return 0;
}

int vx_si5351_param_inc_dec2(SI5351_CONF_T *conf)
{
    if (conf == nullptr) return -1;
    LOG_INFO("si5351 ch:%d rate:%d value:%d def:%d status:%s", conf->ch, conf->rate, conf->value,
             conf->defVal, get_status_si53512(conf->status));
    setReg(conf->ch);
    return 0;
}

void setReg(int32_t ch)
{
    if (!is_channel(ch)) {
        LOG_ERROR("setReg invalid ch:%d ", ch);
        return;
    }
    const SI5351_CONF_T &conf = channel_record(ch);
    Multisynth(channel_rows[ch - 1].block, conf.mult, conf.num, conf.denom, conf.div);
}

static int move_channel(int32_t ch, int (*step)(SI5351_CONF_T *))
{
    if (!is_channel(ch)) return 0;
    SI5351_CONF_T *conf = &channel_record(ch);
    if (step(conf) == 0) (void)vx_si5351_param_inc_dec2(conf); // fails for a null record only
    return 0;
}

int vx_si5351_increase(int32_t ch)
{
    return move_channel(ch, vx_si5351_conf_inc);
}

int vx_si5351_decrease(int32_t ch)
{
    return move_channel(ch, vx_si5351_conf_dec);
}
