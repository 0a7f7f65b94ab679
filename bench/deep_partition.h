// A file on which the sort of a periodic block would partition a group of rotations two
// rows at a time.
#pragma once

#include "data.h"

// A file of `n` bytes, at least 400,000 and even, that compresses as one block u u: the
// trailers 1 0 0 0 of the stages before the sort, which all decline, end the second u.
Bytes deep_partition(std::size_t n);
