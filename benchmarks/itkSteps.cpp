// SPDX-License-Identifier: MIT
#include <itkGradientAnisotropicDiffusionImageFilter.h>
#include <itkImportImageFilter.h>

#include "peers.h"

namespace peers {
namespace {

template <class T, unsigned dimensions>
void stepsOf(const halide_buffer_t& input, int steps) {
    using Image = itk::Image<T, dimensions>;
    const auto picture = itk::ImportImageFilter<T, dimensions>::New();
    typename Image::RegionType region;
    itk::SizeValueType elements = 1;
    for (unsigned d = 0; d < dimensions; ++d) {
        region.SetSize(d, itk::SizeValueType(input.dim[d].extent));
        elements *= region.GetSize(d);
    }
    picture->SetRegion(region);
    picture->SetImportPointer(reinterpret_cast<T*>(input.host), elements, false);
    const auto filter = itk::GradientAnisotropicDiffusionImageFilter<Image, Image>::New();
    filter->SetInput(picture->GetOutput());
    filter->SetNumberOfIterations(itk::IdentifierType(steps));
    filter->SetTimeStep(0.5 / (1 << dimensions));  // the largest that the filter calls stable
    filter->SetConductanceParameter(1);
    filter->SetNumberOfWorkUnits(1);
    filter->Update();
}

}  // namespace

void itkSteps(const halide_buffer_t& input, int steps) {
    const bool isDouble = input.type.bits == 64;
    if (input.dimensions == 2) {
        (isDouble ? stepsOf<double, 2> : stepsOf<float, 2>)(input, steps);
    } else {
        (isDouble ? stepsOf<double, 3> : stepsOf<float, 3>)(input, steps);
    }
}

}  // namespace peers
