// How far a long run is, on a terminal.
#pragma once

#include "velkinfo/archive_blocks.h"

// Shows it from the first second on, if someone watches the standard error stream. For
// ArchiveFile::watch.
void show_progress(const velk::ArchiveFile &archive, std::uint64_t offset);

// Wipes that away.
void clear_progress();
