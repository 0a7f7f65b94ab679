// Stages in their plainest form: the judges of the fast ones, and what the benchmarks
// compare them with. They share no line with the stages but the built-in counts.
#pragma once

#include "data.h"

// The block of a last column of n bytes and its 1-based primary index, by one walk of
// one row a step. rows: n entries. block: room for n + 1 bytes.
void plain_inverse_bwt(const std::uint8_t *last_column, std::uint32_t n,
                       std::uint32_t primary_index, std::uint32_t *rows, std::uint8_t *block);

// The block that the DCE stage makes of this one.
Bytes plain_dce_encode(const Bytes &block);
