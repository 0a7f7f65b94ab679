// The two commands: a file to an archive and back.
#pragma once

#include "archive/coder_context.h"

namespace velk {

// Both read `settings.input_name`, write `settings.output_name`, print the memory
// figure, a mark a block and a summary, and return only after the output has been
// written out completely. Any failure ends the process through `error_exit`; what
// was written by then stays.
//
// The input must be a regular file other than the output, and the messages must not go
// into the output. An input that shrinks while it is read is an error; of one that
// grows, the archive holds, and the summary counts, what there was to read.
// All other members of the context must be zero.
void compress_file(CoderContext &context);
void decompress_file(CoderContext &context);

} // namespace velk
