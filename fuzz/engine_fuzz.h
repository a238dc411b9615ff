/* Shared by the fuzzers that drive the engine: a fresh start for each input, and a way to fail. */
#pragma once

#include <string>

/* Records, step table, switch, bus and simulated chip as after bring-up. */
void reset_engine();

/* The 24 registers of the output dividers, as "FF FF 10". */
std::string chip_registers();

/* Ends the fuzzer, which then saves its input, unless a condition holds. */
void require(bool holds, const char *what);
void require_same(const std::string &found, const std::string &wanted, const char *what);
