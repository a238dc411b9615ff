/* The register table of bring-up. After it PLL A feeds the three outputs, whatever state the chip
 * was in before. */
#include "chip/register_table.h"

#include <iterator>

#include "chip/i2c_access.h"
#include "chip/multisynth.h"
#include "chip/outputs.h"

/* Registers by the chip's published numbers, in the order in which they are written. */
// clang-format off
static constexpr REGISTER_ROW_T si5351a_revb_registers_24576[] = {
    {3, 0xFF},                                              // disable every output
    {16, 0x80}, {17, 0x80}, {18, 0x80}, {19, 0x80},         // CLK0 to CLK7: power the drivers down
    {20, 0x80}, {21, 0x80}, {22, 0x80}, {23, 0x80},
    {2, 0xFF},                                              // mask every interrupt source
    {4, 0x20},
    {7, 0x0F},
    {15, 0x00},                                             // PLL A and B fed from the crystal, / 1
    {16, 0x0D}, {17, 0x0D}, {18, 0x0D},                     // CLK0 to CLK2: on, fractional, PLL A,
                                                            // own multisynth, 4 mA
    {19, 0x8C}, {20, 0x8C}, {21, 0x8C}, {22, 0x8C},         // CLK3 to CLK7: off
    {23, 0x8C},
    {26, 0x00}, {27, 0x03}, {28, 0x00}, {29, 0x0E},         // PLL A: 33 + 1/3
    {30, 0xAA}, {31, 0x00}, {32, 0x00}, {33, 0x02},
    {42, 0x01}, {43, 0x00}, {44, 0x00}, {45, 0x10},         // MS0: 36 + 159/256
    {46, 0x4F}, {47, 0x00}, {48, 0x00}, {49, 0x80},
    {50, 0x01}, {51, 0x00}, {52, 0x00}, {53, 0x10},         // MS1: 36 + 159/256
    {54, 0x4F}, {55, 0x00}, {56, 0x00}, {57, 0x80},
    {58, 0x00}, {59, 0x01}, {60, 0x00}, {61, 0x02},         // MS2: 9
    {62, 0x80}, {63, 0x00}, {64, 0x00}, {65, 0x00},
    {90, 0x00}, {91, 0x00},                                 // MS6, MS7
    {149, 0x00}, {150, 0x00}, {151, 0x00}, {152, 0x00},     // spread spectrum off
    {153, 0x00}, {154, 0x00}, {155, 0x00},
    {162, 0x00}, {163, 0x00}, {164, 0x00},                  // VCXO
    {165, 0x00}, {166, 0x00}, {167, 0x00},                  // CLK0 to CLK2: no phase offset
    {183, 0x92},                                            // crystal load 8 pF
    {177, 0xAC},                                            // reset PLL A and PLL B
    {3, 0x00},                                              // enable every output
};
// clang-format on
static_assert(std::size(si5351a_revb_registers_24576) == 71, "every register of the table");

/* After the table, bring-up sets PLL A again by its ratio. Both must give the same registers, or
 * all outputs would jump. */
static constexpr bool table_sets_pll_a()
{
    const DIVIDER_BLOCK_T block = pack_divider(divide_by(PLL_A_MULT, PLL_A_NUM, PLL_A_DENOM), 0);
    uint32_t found = 0;
    for (const REGISTER_ROW_T &row : si5351a_revb_registers_24576) {
        if (row.reg < PLL_A_BLOCK || row.reg >= PLL_A_BLOCK + block.size()) continue;
        if (row.value != block[row.reg - PLL_A_BLOCK]) return false;
        found++;
    }
    return found == block.size();
}
static_assert(table_sets_pll_a(), "registers 26 to 33 hold the ratio of PLL A");

const REGISTER_ROW_T *si5351_reg_map_ptr = nullptr;

void write_register_table()
{
    si5351_reg_map_ptr = si5351a_revb_registers_24576;
    for (size_t i = 0; i < std::size(si5351a_revb_registers_24576); i++) {
        const REGISTER_ROW_T &row = si5351_reg_map_ptr[i];
        i2cSendRegister(static_cast<uint8_t>(row.reg), row.value);
    }
}
