/* What the service must make of its commands, calculated on its own. */
#include "tests/engine_model.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/texts.h"

static const struct {
    int32_t rate, mult, num, div;
} nominal[] = {
    {44100, 79, 753800, 1}, {48000, 73, 253600, 1},  {88200, 79, 753700, 0},
    {96000, 73, 253300, 0}, {176400, 39, 901060, 0}, {192000, 36, 650880, 0},
};
static const char *const words[] = {"set param", "increase", "decrease", "reset"};

static void set_rate(MODEL_CHANNEL_T *c, int32_t rate, const int32_t *steps)
{
    c->rate = rate;
    c->value = c->learned = 0;
    for (const auto &n : nominal) {
        if (n.rate != rate) continue;
        c->value = c->nominal = c->chip_num = n.num;
        c->steps = 0;
        c->step = steps[&n - nominal];
        c->chip_mult = n.mult;
        c->chip_div = n.div;
    }
}

/* way: -1 faster, 1 slower. Back at 0, the centre lies a hundredth of a step further on the side
 * that the channel comes from. */
static void trim(MODEL_CHANNEL_T *c, int way)
{
    bool supported = false;
    for (const auto &n : nominal)
        supported = supported || n.rate == c->rate;
    if (!supported || std::abs(c->steps + way) > 24) return;
    c->steps += way;
    c->value = c->nominal + c->steps * c->step;
    if (c->steps == 0) {
        const int32_t off = (c->learned - c->nominal) * -way; // on that side, if positive
        const bool keep = c->learned != 0 && off >= 0 && off <= 20 * c->step;
        c->value = c->learned = (keep ? c->learned : c->nominal) - way * (c->step / 100);
    }
    c->chip_num = c->value;
}

void apply_command(MODEL_T *model, uint32_t cmd, int32_t ch, int32_t arg0, int32_t arg1)
{
    if (ch < 1 || ch > 3) return;
    MODEL_CHANNEL_T *c = &model->channels[ch - 1];
    if (cmd == 0x1238) {
        c->fifo_size = arg0;
        c->fifo_fill = arg1;
    }
    if (cmd < 0x1234 || cmd > 0x1237) return;
    c->status = cmd;
    if (!model->enabled) return;
    if (cmd == 0x1234) set_rate(c, arg0, model->steps);
    if (cmd == 0x1235) trim(c, -1);
    if (cmd == 0x1236) trim(c, 1);
    if (cmd == 0x1237 && c->steps != 0) trim(c, c->steps < 0 ? 1 : -1);
}

void apply_typed(MODEL_T *model, uint32_t cmd, int32_t ch, int32_t arg0)
{
    const bool enabled = std::exchange(model->enabled, true);
    apply_command(model, cmd, ch, arg0, 0);
    model->enabled = enabled;
}

static std::string format(const char *text, ...) __attribute__((format(printf, 1, 2)));
static std::string format(const char *text, ...)
{
    char out[256];
    va_list args;
    va_start(args, text);
    (void)vsnprintf(out, sizeof(out), text, args);
    va_end(args);
    return out;
}

std::string model_dump(const MODEL_T &model)
{
    std::string text = "5351 info\n";
    for (int i = 0; i < 3; i++) {
        const MODEL_CHANNEL_T &c = model.channels[i];
        text += format("ch:%d rate:%d value:%d status:%s\n", i + 1, c.rate, c.value,
                       words[c.status - 0x1234]);
    }
    return text;
}

std::string model_status(const MODEL_T &model)
{
    static const char *const names[] = {"hdmi", "analog", "earc/spdif"};
    std::string text;
    for (int i = 0; i < 3; i++) {
        const MODEL_CHANNEL_T &c = model.channels[i];
        text += format("%s\"%s\":{\"fifoTotal\":%d,\"fifoUsed\":%d,\"ppmAdjusted\":%d,"
                       "\"ppmMaxStep\":300}",
                       i > 0 ? "," : "", names[i], c.fifo_size, c.fifo_fill, c.value);
    }
    return "{\"genlock\":{" + text + "}}";
}

std::string model_text_dump(const MODEL_T &model)
{
    std::string text = "init 5351 conf\n";
    for (int i = 0; i < 3; i++) {
        const MODEL_CHANNEL_T &c = model.channels[i];
        text += format("ch:%d rate:%d value:%d xValue:%d defVal:%d count:%d step:%d status:%s "
                       "mult:%d num:%d denom:1048575 div:%d\n",
                       i + 1, c.rate, c.value, c.learned, c.nominal, c.steps, c.step,
                       words[c.status - 0x1234], c.chip_mult, c.chip_num, c.chip_div);
    }
    text += "5351 step conf\n";
    for (int i = 0; i < 6; i++)
        text += format("%d:%d%s", nominal[i].rate, model.steps[i], i < 5 ? " " : "\n");
    return text;
}

std::string model_registers(const MODEL_T &model)
{
    std::string bytes;
    for (const MODEL_CHANNEL_T &c : model.channels) {
        const int64_t denom = 1048575;
        const int64_t f = 128LL * c.chip_num / denom;
        const int64_t p1 = 128LL * c.chip_mult + f - 512;
        const int64_t p2 = 128LL * c.chip_num - denom * f;
        for (const int64_t byte : {int64_t{0xFF}, int64_t{0xFF}, int64_t{c.chip_div} << 4, p1 >> 8,
                                   p1, 0xF0 | p2 >> 16, p2 >> 8, p2})
            bytes.push_back(static_cast<char>(byte)); // the low 8 bits
    }
    return to_hex(bytes.data(), bytes.size());
}
