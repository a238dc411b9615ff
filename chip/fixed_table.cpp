/* Table-driven clock setting: the sets of parameters. A set is stored in ch_param and
 * then written to the chip.
 *
 * One rule gives every set: 900 MHz / multisynth output as a + b/c in lowest terms, then P1 to P3
 * as in DIVIDER_T, all in whole numbers. The R divider comes after the multisynth: an offset of key
 * Hz at the output is key x 2^div at the multisynth. */
#include "chip/fixed_table.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "chip/outputs.h"
#include "chip/rates.h"

static constexpr unsigned REGISTER_PAUSE_US = 100;

/* The multisynth output that the rates of a family share. */
enum FAMILY_E { MSP_22579000, MSP_24576000 };

enum OFFSET_E { OFFSET_INC, OFFSET_DEC };

struct FIXED_RATE_T {
    int32_t rate_hz;
    CH_PARAM_T nominal;
    FAMILY_E family;
};

// clang-format off
/* In the order of rate_rows. */
static constexpr FIXED_RATE_T fixed_rates[] = {
    //  rate  div     P1    P2     P3
    {  44100, {2, {4590, 1942, 22579}}, MSP_22579000},
    {  48000, {2, {4175,  128,   256}}, MSP_24576000},
    {  88200, {1, {4590, 1942, 22579}}, MSP_22579000},
    {  96000, {1, {4175,  128,   256}}, MSP_24576000},
    { 176400, {0, {4590, 1942, 22579}}, MSP_22579000},
    { 192000, {0, {4175,  128,   256}}, MSP_24576000},
};
static constexpr bool stand_in_order()
{
    bool same = std::size(fixed_rates) == RATE_COUNT;
    for (int i = 0; same && i < RATE_COUNT; i++)
        same = fixed_rates[i].rate_hz == rate_rows[i].rate_hz;
    return same;
}
static_assert(stand_in_order(), "a setting for each row of rate_rows");

constexpr MSP_ROW_T mclk_msp_22579000_inc[MSP_ROW_COUNT] = {
    // row    P1      P2      P3
    {  0, {4590,   4114, 225793}}, // +300 Hz
    {  1, {4589,  53651,  56449}}, // +600 Hz
    {  2, {4589, 199301, 225799}}, // +900 Hz
    {  3, {4589,  91999, 112901}}, // +1200 Hz
    {  4, {4589,  33739,  45161}}, // +1500 Hz
    {  5, {4589,   9587,  14113}}, // +1800 Hz
    {  6, {4589, 138089, 225811}}, // +2100 Hz
    {  7, {4589,  61393, 112907}}, // +2400 Hz
    {  8, {4589,   4609,  11291}}, // +3000 Hz
    {  9, {4589,  30787, 112913}}, // +3600 Hz
    { 10, {4589,   3871,  28229}}, // +4200 Hz
    { 11, {4589,    181, 112919}}, // +4800 Hz
    { 12, {4588,   3300,   4517}}, // +6000 Hz
    { 13, {4588,  51900, 112931}}, // +7200 Hz
    { 14, {4588,  21300, 112937}}, // +8400 Hz
    { 15, {4587, 103643, 112943}}, // +9600 Hz
};

constexpr MSP_ROW_T mclk_msp_22579000_dec[MSP_ROW_COUNT] = {
    // row    P1      P2      P3
    {  0, {4590,  34726, 225787}}, // -300 Hz
    {  1, {4590,   6254,  28223}}, // -600 Hz
    {  2, {4590,  65338, 225781}}, // -900 Hz
    {  3, {4590,  40322, 112889}}, // -1200 Hz
    {  4, {4590,   3838,   9031}}, // -1500 Hz
    {  5, {4590,  27814,  56443}}, // -1800 Hz
    {  6, {4590, 126562, 225769}}, // -2100 Hz
    {  7, {4590,  70934, 112883}}, // -2400 Hz
    {  8, {4590,   1078,   1411}}, // -3000 Hz
    {  9, {4590, 101546, 112877}}, // -3600 Hz
    { 10, {4591,   1989,  56437}}, // -4200 Hz
    { 11, {4591,  19287, 112871}}, // -4800 Hz
    { 12, {4591,   9981,  22573}}, // -6000 Hz
    { 13, {4591,  80523, 112859}}, // -7200 Hz
    { 14, {4591, 111141, 112853}}, // -8400 Hz
    { 15, {4592,  28912, 112847}}, // -9600 Hz
};

static_assert(mclk_msp_22579000_inc[MSP_ROW_COUNT - 1].row == MSP_ROW_COUNT - 1 &&
                  mclk_msp_22579000_dec[MSP_ROW_COUNT - 1].row == MSP_ROW_COUNT - 1,
              "no row is missing");

/* Rows of these tables by key and rate: the row whose offset is key x 2^div. */
static constexpr uint8_t msp_22579000_rows[][3] = {
    // key    44100 88200 176400
    /*  300 */ {  3,    1,     0},
    /*  600 */ {  7,    3,     1},
    /*  900 */ {  9,    5,     2},
    /* 1200 */ { 11,    7,     3},
    /* 1500 */ { 12,    8,     4},
    /* 1800 */ { 13,    9,     5},
    /* 2100 */ { 14,   10,     6},
    /* 2400 */ { 15,   11,     7},
};

/* The 48 kHz family by key and rate. The table above has the same keys in the same order. */
struct KEY_ROW_T {
    int key_hz;
    DIVIDER_T dividers[3]; // 48000, 96000, 192000
};
static constexpr KEY_ROW_T msp_24576000_inc[] = {
    //  key             48000                  96000                 192000
    {  300, {{4175,  1851,  6827}, {4175, 15793, 40961}, {4175, 12091, 27307}}},
    {  600, {{4175,   433, 10241}, {4175,  1851,  6827}, {4175, 15793, 40961}}},
    {  900, {{4174, 16662, 20483}, {4175,  6419, 40963}, {4175, 26899, 81923}}},
    { 1200, {{4174,   998,  1707}, {4175,   433, 10241}, {4175,  1851,  6827}}},
    { 1500, {{4174,  1458,  4097}, {4174,  2534,  2731}, {4175,   701,  3277}}},
    { 1800, {{4174,  1302, 10243}, {4174, 16662, 20483}, {4175,  6419, 40963}}},
    { 2100, {{4173,  6135,  6829}, {4174, 28638, 40967}, {4175,  2717, 27309}}},
    { 2400, {{4173,  1715,  2561}, {4174,   998,  1707}, {4175,   433, 10241}}},
};

static constexpr KEY_ROW_T msp_24576000_dec[] = {
    //  key             48000                  96000                 192000
    {  300, {{4175, 14927, 20479}, {4175,  8389, 13653}, {4175, 45647, 81919}}},
    {  600, {{4175,  3269,  3413}, {4175, 14927, 20479}, {4175,  8389, 13653}}},
    {  900, {{4176,  3824, 20477}, {4175, 34541, 40957}, {4175, 55021, 81917}}},
    { 1200, {{4176,  2128,  5119}, {4175,  3269,  3413}, {4175, 14927, 20479}}},
    { 1500, {{4176,   176,   273}, {4176,   592,  8191}, {4175,  4293,  5461}}},
    { 1800, {{4176,  8944, 10237}, {4176,  3824, 20477}, {4175, 34541, 40957}}},
    { 2100, {{4177,  2103, 20473}, {4176,  4112, 13651}, {4175, 73769, 81913}}},
    { 2400, {{4177,   283,   853}, {4176,  2128,  5119}, {4175,  3269,  3413}}},
};
static_assert(std::size(msp_24576000_inc) == std::size(msp_22579000_rows) &&
                  std::size(msp_24576000_dec) == std::size(msp_22579000_rows),
              "the same keys in both families and directions");
// clang-format on

CH_PARAM_T ch_param = {};

static const FIXED_RATE_T *find_fixed_rate(int rate_hz)
{
    const RATE_ROW_T *row = find_rate(rate_hz);
    return row == nullptr ? nullptr : &fixed_rates[row - rate_rows];
}

static const DIVIDER_T *find_divider(const FIXED_RATE_T &rate, int key_hz, OFFSET_E direction)
{
    const auto &keys = direction == OFFSET_INC ? msp_24576000_inc : msp_24576000_dec;
    const auto *key = std::find_if(std::begin(keys), std::end(keys),
                                   [&](const KEY_ROW_T &k) { return k.key_hz == key_hz; });
    if (key == std::end(keys)) return nullptr;
    const uint32_t column = 2 - rate.nominal.div; // the lowest rate of a family stands first
    if (rate.family == MSP_24576000) return &key->dividers[column];
    const auto &rows = direction == OFFSET_INC ? mclk_msp_22579000_inc : mclk_msp_22579000_dec;
    return &rows[msp_22579000_rows[key - keys][column]].divider;
}

/* A refused key does not change P1 to P3. */
static int store_divider(const FIXED_RATE_T &rate, int key_hz, OFFSET_E direction)
{
    const DIVIDER_T *divider = find_divider(rate, key_hz, direction);
    if (divider == nullptr) return 0;
    ch_param.divider = *divider;
    return 1;
}

static int store_offset(int rate_hz, int key_hz, OFFSET_E direction)
{
    const FIXED_RATE_T *rate = find_fixed_rate(rate_hz);
    if (rate == nullptr) return 0;
    ch_param.div = rate->nominal.div; // also when the key is refused
    return store_divider(*rate, key_hz, direction);
}

static int store_offset_44100x(int rate_hz, int key_hz, OFFSET_E direction)
{
    const FIXED_RATE_T *rate = find_fixed_rate(rate_hz);
    if (rate == nullptr || rate->family != MSP_22579000) return 0;
    return store_divider(*rate, key_hz, direction);
}

int vx_si5351_set(int ch, int rate)
{
    const FIXED_RATE_T *row = find_fixed_rate(rate);
    if (row == nullptr) {
        (void)printf("rate:%d error\n", rate);
        return 0;
    }
    ch_param = row->nominal;
    si5351_channel_param_set(ch);
    return 1;
}

int vx_si5351_param_inc_set(int ch, int rate, int key)
{
    const int result = store_offset(rate, key, OFFSET_INC);
    si5351_channel_param_set(ch);
    return result;
}

int vx_si5351_param_dec_set(int ch, int rate, int key)
{
    const int result = store_offset(rate, key, OFFSET_DEC);
    si5351_channel_param_set(ch);
    return result;
}

int vx_si5351_param_44100x_inc_set(int key, int rate)
{
    return store_offset_44100x(rate, key, OFFSET_INC);
}

int vx_si5351_param_44100x_dec_set(int key, int rate)
{
    return store_offset_44100x(rate, key, OFFSET_DEC);
}

void si5351_channel_param_set(int ch)
{
    if (!is_channel(ch)) return;
    const auto r_bits = static_cast<uint8_t>((ch_param.div & 0x7) << 4);
    write_block(output_block(ch), pack_divider(ch_param.divider, r_bits), REGISTER_PAUSE_US);
}
