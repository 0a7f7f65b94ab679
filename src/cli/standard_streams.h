// What the system is asked about the standard streams.
#pragma once

namespace velk {

// To be called first. Keeps the numbers of streams that the caller closed, which files
// opened later would get, so that messages would be written into them; and lets bytes
// pass as they are where the system would change line ends.
void prepare_standard_streams();

// Whether a file of this name is where the standard output stream goes: messages would be
// written into it, as by `VELK e file a >a` or, into a pipe, by
// `VELK e file /dev/stdout | ...`. Not so for a device such as /dev/null, which may take
// both.
[[nodiscard]] bool takes_messages(const char *name);

} // namespace velk
