// The files in folders, for -r.
#pragma once

#include "options.h"

// Puts the files below each folder that the options name in its place, in the order of their
// names: those that the suffix tells are to be worked on. Links are not followed.
Status expand_folders(Options &options);
