#include "montage.h"

#include <algorithm>
#include <cmath>

namespace diffuse {

namespace {

constexpr int gap = 4;  // pixels between two panels

// Which way an axis runs through the space left, posterior, superior: the component that is
// largest in size, with superior counted downwards, as rows of a picture are.
bool runsBackwards(const Axis& axis) {
    if (axis.direction.size() != 3) return false;
    const auto& d = axis.direction;
    const auto largest = std::max_element(
        d.begin(), d.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    const bool superior = largest == d.end() - 1;
    return superior ? *largest > 0 : *largest < 0;
}

}  // namespace

Picture montage(const std::vector<const Picture*>& panels) {
    const Picture& first = *panels.front();
    const int width = first.axes[0].extent;
    const int height = first.axes[1].extent;
    const bool mirrored = runsBackwards(first.axes[0]);
    const bool flipped = runsBackwards(first.axes[1]);
    const auto [lowest, highest] = std::minmax_element(first.values.begin(), first.values.end());
    const double scale = *highest > *lowest ? 255 / (*highest - *lowest) : 1;

    const int fullWidth = static_cast<int>(panels.size()) * (width + gap) - gap;
    Picture sheet{{{fullWidth}, {height}}, SampleType::uint8, {}};
    sheet.values.assign(static_cast<std::size_t>(fullWidth) * height, 255);
    for (std::size_t p = 0; p < panels.size(); ++p) {
        for (int j = 0; j < height; ++j) {
            const int y = flipped ? height - 1 - j : j;
            for (int i = 0; i < width; ++i) {
                const int x = mirrored ? width - 1 - i : i;
                const double value = panels[p]->values[static_cast<std::size_t>(y) * width + x];
                sheet.values[static_cast<std::size_t>(j) * fullWidth + p * (width + gap) + i] =
                    (value - *lowest) * scale;
            }
        }
    }
    return sheet;
}

}  // namespace diffuse
