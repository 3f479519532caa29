// SPDX-License-Identifier: MIT
// The program that one would write with ITK: a reader, its anisotropic diffusion, a writer.
#include <itkCastImageFilter.h>
#include <itkGradientAnisotropicDiffusionImageFilter.h>
#include <itkImageFileReader.h>
#include <itkImageFileWriter.h>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    using Image = itk::Image<float, 3>;
    using Samples = itk::Image<unsigned char, 3>;
    const auto reader = itk::ImageFileReader<Image>::New();
    reader->SetFileName(argv[1]);
    const auto filter = itk::GradientAnisotropicDiffusionImageFilter<Image, Image>::New();
    filter->SetInput(reader->GetOutput());
    filter->SetNumberOfIterations(3);
    filter->SetTimeStep(0.0625);
    filter->SetConductanceParameter(1);
    const auto cast = itk::CastImageFilter<Image, Samples>::New();
    cast->SetInput(filter->GetOutput());
    const auto writer = itk::ImageFileWriter<Samples>::New();
    writer->SetInput(cast->GetOutput());
    writer->SetFileName(argv[2]);
    writer->UseCompressionOn();
    writer->Update();
    return 0;
}
