#include "dce/frequency_models.h"

namespace {

// The start of the primary set, each number 1 below its counter.
constexpr std::uint16_t kBuiltinCounts[] = {
#include "dce/builtin_counts.inc"
};
static_assert(sizeof kBuiltinCounts / sizeof *kBuiltinCounts == kContexts * (kSymbols + 1));

} // namespace

void load_builtin_counts(ModelSet &set) {
    const std::uint16_t *stored = kBuiltinCounts;
    for (FreqModel &model : set.context) {
        model.total = *stored++ + 1u;
        for (std::uint32_t &count : model.count)
            count = *stored++ + 1u;
    }
}

void init_model_set(ModelSet &set, int use_builtin) {
    if (use_builtin != 0) {
        load_builtin_counts(set);
        return;
    }
    for (FreqModel &model : set.context) {
        model.total = kSymbols;
        for (std::uint32_t &count : model.count)
            count = 1;
    }
}

void init_models(ModelSet *models) {
    init_model_set(models[0], 1);
    for (std::uint32_t i = 1; i < kModelSets; ++i)
        init_model_set(models[i], 0);
}
