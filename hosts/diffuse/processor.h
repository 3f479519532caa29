// Which of the library's instruction sets this processor can run.
#pragma once

#include <string>

namespace diffuse {

// Turns "auto" into the best instruction set that the processor and its operating system can run,
// and any other into itself, in the words of the exported names.
// Throws std::runtime_error with one line if the one that was asked for cannot be run here.
std::string chooseInstructionSet(const std::string& wanted);

}  // namespace diffuse
