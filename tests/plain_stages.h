// Stages in their plainest form: the judges of the fast ones, and what the benchmarks
// compare them with. They share no line with the stages but the built-in counts.
#pragma once

#include "data.h"

#include <array>

// The block of a last column of n bytes and its 1-based primary index, by one walk of
// one row a step. rows: n entries. block: room for n + 1 bytes.
void plain_inverse_bwt(const std::uint8_t *last_column, std::uint32_t n,
                       std::uint32_t primary_index, std::uint32_t *rows, std::uint8_t *block);

// What both directions of the DCE stage remember, and the models that they choose by it.
struct PlainDceState {
    // Counter 0 is the total of the others, which count symbols 0 to 31.
    using Model = std::array<std::uint32_t, 33>;

    PlainDceState();
    // The primary and the secondary model for the value behind a run of byte s, neither
    // above the limit.
    std::pair<Model *, Model *> choose(std::uint32_t s, std::uint32_t run);
    Model &bit_model(std::uint32_t e);
    static void count(Model &model, std::uint32_t symbol, std::uint32_t amount);
    void remember(std::uint32_t s, std::uint32_t v, std::uint32_t run);

private:
    struct Stats {
        std::uint32_t slow, last, small;
        std::int32_t fast;
    };
    std::vector<Model> models_;
    std::uint32_t previous_ = 0;
    Stats stats_[256] = {};
};

Bytes plain_dce_encode(const Bytes &block);
