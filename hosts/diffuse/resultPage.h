// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "options.h"
#include "picture/picture.h"
#include "report/report.h"

namespace diffuse {

// The page that shows what was done, with the command lines of this program on it. Of a series it
// shows the first picture or volume.
std::string resultPage(const Options& options, const Picture& before, const Picture& after,
                       const Report& report);

}  // namespace diffuse
