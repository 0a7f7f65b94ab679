// Finds the counts that the primary model of a context should start with.
//
// A row has a shape, the shares of the symbols, and a strength, its total: the larger it
// is, the longer the row withstands what a block brings. Both are searched on the size
// that the coder would come to.
#pragma once

#include "coder_events.h"

namespace velk {

// Which contexts start flat, and which rows are given, whatever the files say.
bool is_flat_context(std::uint32_t context);
bool is_given_context(std::uint32_t context);

// Every row flat but for the given ones.
Table start_table();

// The row whose symbols have the shares that they have in the log, with total `total`.
Row frequency_row(const EventLog &log, std::uint32_t context, double total);

// The best of the frequency rows of any total.
Row fit_strength(const EventLog &log, std::uint32_t context);

// The best row on a descent from `row`, every count free.
Row fit_shape(const EventLog &log, std::uint32_t context, Row row);

} // namespace velk
