#include "Reference.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <type_traits>

#include "Conduction.h"
#include "Neighbours.h"
#include "Sums.h"

namespace reference {
namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;

struct Position {
    int32_t at[3];
};

int32_t addWrapping(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// The bounds are absolute: 0 .. extent - 1, whatever the min of the buffer is.
int32_t clampCoordinate(int32_t v, int32_t extent) {
    return std::max(std::min(v, addWrapping(extent, -1)), 0);
}

template <class T>
T readClamped(const View<const T>& input, const Position& position, Offset offset) {
    const int step[3] = {offset.dx, offset.dy, offset.dz};
    int64_t index = 0;
    for (int d = 0; d < input.dimensions; ++d) {
        const int64_t v = clampCoordinate(addWrapping(position.at[d], step[d]), input.extent[d]);
        index += (v - input.min[d]) * input.stride[d];
    }
    return input.host[index];
}

template <class T>
T rateOf(PipelineVariant variant) {
    const bool minimal = variant.connectivity == Connectivity::minimal;
    if (variant.dimensions == 2) return minimal ? T(0.25) : T(0.125);
    if constexpr (std::is_same_v<T, float>) {
        return std::bit_cast<float>(minimal ? 0x3e2aaaabu : 0x3d1d89d9u);  // 1/6, 1/26
    } else {
        return std::bit_cast<double>(minimal ? uint64_t{0x3fc5555555555555}
                                             : uint64_t{0x3fa3b13b13b13b14});
    }
}

int neighbourCount(PipelineVariant variant) {
    const bool minimal = variant.connectivity == Connectivity::minimal;
    if (variant.dimensions == 2) return minimal ? 4 : 8;
    return minimal ? 6 : 26;
}

template <class T>
class Step {
public:
    Step(PipelineVariant variant, const View<const T>& input, double gradTIn)
        : variant_(variant),
          input_(input),
          inLine_(input.extent[0] <= variant.lanes()),
          gradTInv_(T(1) / static_cast<T>(gradTIn)),
          rate_(rateOf<T>(variant)) {}

    T element(const Position& position) const {
        const T centre = readClamped(input_, position, {0, 0, 0});
        const Offset* offsets = variant_.dimensions == 2 ? planeOffsets : volumeOffsets;
        Pulls<T> pulls;
        for (int i = 0; i < neighbourCount(variant_); ++i) {
            const T neighbour = readClamped(input_, position, offsets[i]);
            pulls.difference[i] = neighbour - centre;
            pulls.conductance[i] = conductance(pulls.difference[i]);
        }
        const T sum = weightedSum(variant_, inLine_, pulls);
        if (variant_.instructionSet == InstructionSet::avx2) return std::fma(sum, rate_, centre);
        return sum * rate_ + centre;
    }

private:
    T conductance(T difference) const {
        const T t = std::abs(difference) * gradTInv_;
        return variant_.conduction == Conduction::quadratic
                   ? quadraticConductance(variant_.instructionSet, t)
                   : exponentialConductance(variant_.instructionSet, t);
    }

    PipelineVariant variant_;
    View<const T> input_;
    bool inLine_;
    T gradTInv_;
    T rate_;
};

}  // namespace

template <class T>
void filter(PipelineVariant variant, const View<const T>& input, double gradTIn,
            const View<T>& output) {
    const Step<T> step(variant, input, gradTIn);
    const int32_t planes = output.dimensions == 3 ? output.extent[2] : 1;
    for (int32_t k = 0; k < planes; ++k) {
        for (int32_t j = 0; j < output.extent[1]; ++j) {
            for (int32_t i = 0; i < output.extent[0]; ++i) {
                const int32_t from[3] = {i, j, k};
                Position position = {};
                int64_t index = 0;
                for (int d = 0; d < output.dimensions; ++d) {
                    position.at[d] = addWrapping(output.min[d], from[d]);
                    index += int64_t{from[d]} * output.stride[d];
                }
                output.host[index] = step.element(position);
            }
        }
    }
}

template void filter(PipelineVariant, const View<const float>&, double, const View<float>&);
template void filter(PipelineVariant, const View<const double>&, double, const View<double>&);

}  // namespace reference
