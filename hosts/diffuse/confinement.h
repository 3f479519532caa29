// SPDX-License-Identifier: MIT
// What a process that reads other people's files may do.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace diffuse {

// For a forked child: it ends with its parent, leaves no core, gains no privileges, keeps none of
// the parent's files but `kept`, whose new number is returned, and prints to `errors` only. From
// here on it cannot write to, make, rename or remove a file, start a program or open a connection;
// where the kernel has no filter of system calls, it still cannot write to a file.
void confine(pid_t parent, int errors);

// Lets the process have so many bytes beside those that it has now.
void allowMemory(std::uintmax_t bytes);

}  // namespace diffuse
