// SPDX-License-Identifier: MIT
// Pictures beside each other, to be looked at.
#pragma once

#include <optional>
#include <vector>

#include "picture/picture.h"

namespace diffuse {

// One 8-bit picture of all `pictures`, which are of equal shape, with white gaps between the panels
// and one pixel for each sample. All are scaled alike: the range of the first becomes 0 to 255.
// Pictures stand in one row; each volume takes a row of its own: its central axial, coronal and
// sagittal slice. Slices of a head stand upright, as radiologists show them: anterior or superior
// up, the patient's right side or front at the left.
Picture montage(const std::vector<const Picture*>& pictures,
                const std::optional<Range>& greys = {});

}  // namespace diffuse
