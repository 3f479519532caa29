// SPDX-License-Identifier: MIT
// What the program makes sure of before it works.
#pragma once

namespace diffuse {

// Opens what is closed of standard input, output and error, lest a file takes their place. From now
// on to write to a closed pipe, or beyond the limit for a file, is an error like a full disk.
void secureStandardStreams();

// Tries whether as many threads can be started as the parallel loop will start for `wanted`, 0 for
// all processors: TBB would end the process. Where they cannot, the loop runs on the calling thread
// from now on. Returns the number of threads that will work.
int startThreads(int wanted);

}  // namespace diffuse
