/* The state of the three channels and of the trim steps, and the lock that guards it. */
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "chip/outputs.h"
#include "chip/rates.h"
#include "trim/commands.h"

/* One channel. Its output runs at 900 MHz / (mult + num / denom) / 2^div: larger num, slower
 * clock. */
struct SI5351_CONF_T {
    int32_t ch;     // 1 to 3, the position in the table plus one
    int32_t rate;   // sample rate in Hz; a refused one stays here until a supported one is set
    int32_t value;  // the numerator in use: num; but 0 after a refused rate
    int32_t xValue; // learned centre numerator, 0: none
    int32_t defVal; // nominal numerator of the rate, centre of the trim range
    int32_t count;  // trim position in steps, -24 (fastest) to 24
    int32_t step;   // change of the numerator per trim step
    VX_SI5351CMD_E status; // last command addressed to the channel
    int32_t fifoTotal;     // FIFO size last reported by the client, in its own unit
    int32_t fifoUsed;      // FIFO fill last reported with it
    uint8_t mult;          // integer part of the multisynth ratio
    uint32_t num;          // fraction numerator
    uint32_t denom;        // fraction denominator, always RATIO_DENOM
    uint8_t div;           // R divider code: output divided by 2^div
};

/**
 * Puts a record at the centre of a sample rate, without a learned centre.
 * @param conf  the record; its channel, status and FIFO stay as they are
 * @param row   the rate
 * @param step  change of the numerator per trim step
 */
constexpr void set_to_rate(SI5351_CONF_T *conf, const RATE_ROW_T &row, int32_t step)
{
    conf->rate = row.rate_hz;
    conf->value = static_cast<int32_t>(row.num);
    conf->xValue = 0;
    conf->defVal = conf->value;
    conf->count = 0;
    conf->step = step;
    conf->mult = row.mult;
    conf->num = row.num;
    conf->denom = RATIO_DENOM;
    conf->div = row.div;
}

/**
 * The trim step of a row of the rate table, in units of the numerator. The console rewrites it; a
 * channel takes it over at its next rate change.
 * The caller holds the engine lock.
 */
int32_t &trim_step(const RATE_ROW_T &row);

/* Guards the records, the step table, the fixed-table working record, the bus descriptor and the
 * chip. Whoever drives the engine takes it once per command, from the first read of a record to the
 * last register write. The engine's own functions take no lock, except those whose comment says
 * so. */
extern std::mutex g_engine_lock;

extern SI5351_CONF_T stSi5351Conf[CHANNEL_COUNT];
extern int32_t stStep[RATE_COUNT]; // one per rate, ascending

/* 0 keeps the datagram service from the chip. The console writes it, the service reads it. */
extern std::atomic<int32_t> g_s32EnableSi5351;

/* Kernel thread id of the service thread, 0 until it runs. */
extern std::atomic<int64_t> si5351pid;

/**
 * @param ch  a valid channel, 1 to 3
 * @return its record. The caller holds the engine lock while using it.
 */
SI5351_CONF_T &channel_record(int32_t ch);

/* Records and trim steps of one instant, to be formatted outside the lock. */
struct STATE_T {
    std::array<SI5351_CONF_T, CHANNEL_COUNT> records;
    std::array<int32_t, RATE_COUNT> steps;
};

/**
 * Copies records and trim steps. Takes the engine lock.
 */
STATE_T copy_state();

/**
 * Stores what a client reported of its FIFO. Any other channel than 1 to 3 changes nothing.
 * @param ch     channel
 * @param total  FIFO size, in the client's unit
 * @param used   FIFO fill, in the same unit
 * @return 0
 * The caller holds the engine lock.
 */
int set_fifo_stat(int32_t ch, int32_t total, int32_t used);

/**
 * Stores the last command addressed to a channel. Any other channel than 1 to 3 changes nothing.
 * @param ch      channel
 * @param status  command code
 * @return 0
 * The caller holds the engine lock.
 */
int set_chn_stat(int32_t ch, VX_SI5351CMD_E status);
