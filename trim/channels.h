/* The state of the three channels, what is known of the channels and of the sample rates, and the
 * lock that guards it all. */
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <mutex>

#include "service/protocol.h"

inline constexpr int CHANNEL_COUNT = 3;

/* One channel. Its output runs at 900 MHz / (mult + num / denom) / 2^div: larger num, slower
 * clock. */
struct SI5351_CONF_T {
    int32_t ch;            // 1 to 3, the position in the table plus one
    int32_t rate;          // sample rate in Hz; keeps a refused one, until a supported one is set
    int32_t value;         // the numerator last worked out: num, or 0 after a refused rate
    int32_t xValue;        // learned centre numerator, 0: none
    int32_t defVal;        // nominal numerator of the rate, centre of the trim range
    int32_t count;         // trim position in steps, -24 (fastest) to 24
    int32_t step;          // change of the numerator per trim step
    VX_SI5351CMD_E status; // last command addressed to the channel
    int32_t fifoTotal;     // FIFO size last reported by the client, in its own unit
    int32_t fifoUsed;      // FIFO fill last reported with it
    uint8_t mult;          // integer part of the multisynth ratio
    uint32_t num;          // fraction numerator
    uint32_t denom;        // fraction denominator, always RATIO_DENOM
    uint8_t div;           // R divider code: output divided by 2^div
};

/* The largest denominator that fits the chip's 20-bit field: the finest trim. */
inline constexpr uint32_t RATIO_DENOM = 1048575;

/* What belongs to a channel for good: its name in the status file and the first of the eight
 * registers of its multisynth (channel 1: MS0 on output CLK0, and so on). */
struct CHANNEL_ROW_T {
    const char *name;
    uint8_t block;
};
// clang-format off
inline constexpr CHANNEL_ROW_T channel_rows[CHANNEL_COUNT] = {
    {"hdmi",       42},
    {"analog",     50},
    {"earc/spdif", 58},
};
// clang-format on

/* Everything known of a sample rate; the row number is the index into stStep. The output is PLL A
 * (900 MHz) / (mult + num / 1048575) / 2^div, which comes to 6.4, 4.6, 7.6, 8.5, 9.4 and 10.0 ppm
 * above 128 times the rate. */
struct RATE_ROW_T {
    int32_t rate_hz;
    uint8_t mult;
    uint32_t num;
    uint8_t div;
    int32_t start_step; // trim step at start, in units of num
};
// clang-format off
inline constexpr RATE_ROW_T rate_rows[] = {
    //  rate  mult     num  div  start_step
    {  44100,   79, 753800,   1,       1400},
    {  48000,   73, 253600,   1,       1200},
    {  88200,   79, 753700,   0,        700},
    {  96000,   73, 253300,   0,        600},
    { 176400,   39, 901060,   0,        200},
    { 192000,   36, 650880,   0,        160},
};
// clang-format on
inline constexpr int RATE_COUNT = std::size(rate_rows);

/**
 * @return the row of a sample rate in Hz, or null when the rate is none of the six
 */
const RATE_ROW_T *find_rate(int32_t rate_hz);

/**
 * The trim step of a row of the rate table, in units of the numerator. The console rewrites it; a
 * channel takes it over at its next rate change.
 * The caller holds the engine lock.
 */
int32_t &trim_step(const RATE_ROW_T &row);

/* Guards the records, the step table, the fixed-table working record, the bus descriptor and the
 * chip. Whoever drives the engine takes it once per command, from the first read of a record to the
 * last register write. The engine's own functions take no lock, but for those here that say so:
 * the ones that copy records to be written elsewhere. */
extern std::mutex g_engine_lock;

extern SI5351_CONF_T stSi5351Conf[CHANNEL_COUNT];
extern int32_t stStep[RATE_COUNT]; // one per rate, ascending

/* 0 keeps the datagram service from the chip. The console writes it, the service reads it. */
extern std::atomic<int32_t> g_s32EnableSi5351;

/* Kernel thread id of the service thread, 0 until it runs. */
extern std::atomic<int64_t> si5351pid;

/**
 * @return whether ch is 1, 2 or 3
 */
bool is_channel(int32_t ch);

/**
 * @param ch  a valid channel, 1 to 3
 * @return its record. The caller holds the engine lock while using it.
 */
SI5351_CONF_T &channel_record(int32_t ch);

/* The three records as they stand at one instant, to be formatted outside the lock. */
using RECORDS_T = std::array<SI5351_CONF_T, CHANNEL_COUNT>;

/**
 * Copies the records. Takes the engine lock.
 */
RECORDS_T copy_records();

/**
 * Copies one record. Takes the engine lock.
 * @param ch  a valid channel, 1 to 3
 */
SI5351_CONF_T copy_record(int32_t ch);

/**
 * @param status  a command code
 * @return its word in logs and dumps; "unknonw" for a value that is no command code
 */
const char *get_status_si53512(VX_SI5351CMD_E status);

/* Room for the lines of a record, as long as they can get. */
inline constexpr size_t RECORD_LINE_SIZE = 256;

/**
 * Formats the short line of a record, "ch:%d rate:%d value:%d status:%s\n".
 * @param line  room for RECORD_LINE_SIZE bytes; terminated
 * @return length of the line
 */
size_t format_record(char *line, const SI5351_CONF_T &record);

/**
 * Formats the long line of a record: all but its FIFO.
 * @param line  room for RECORD_LINE_SIZE bytes; terminated
 */
void format_record_details(char *line, const SI5351_CONF_T &record);

/**
 * Writes a summary to a stream: the service thread's id, one line per record, an empty line;
 * 1 ms pause after each record. Takes the engine lock for the copy of each record.
 * @param stream  open for writing
 * @return the result of the last write: 1, or negative on failure; -1 for a null stream
 */
int vx_si5351_dump(FILE *stream);

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
