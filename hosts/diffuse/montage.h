// Pictures side by side, to be looked at.
#pragma once

#include <vector>

#include "picture.h"

namespace diffuse {

// One 8-bit picture of all `panels`, left to right, with white gaps between them. All are scaled
// alike: the range of the first becomes 0 to 255. Slices of a head stand upright, as radiologists
// show them: anterior or superior up, the patient's right side or front at the left.
// The panels are 2-D and of equal shape.
Picture montage(const std::vector<const Picture*>& panels);

}  // namespace diffuse
