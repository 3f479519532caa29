// SPDX-License-Identifier: MIT
// The pipelines of instruction set none: baseline x86-64, whatever the command line of the
// build says.
#include "schedules/pathsOfSet.h"

#define PIPELINE_none(...) DIFFUSEFILT_PATHS(__VA_ARGS__, none)
#include "pipelines/pipelines.def"
