// The formats that ITK reads and writes for the program, and their errors in one line.
#pragma once

#include <itkImageIOBase.h>

#include <filesystem>
#include <functional>
#include <string>

namespace diffuse {

// The key of DICOM's modality among the metadata of a file.
inline constexpr char dicomModality[] = "0008|0060";

// The reader of the file or the writer that belongs to its name; null if there is none.
itk::ImageIOBase::Pointer openReader(const std::filesystem::path& file);
itk::ImageIOBase::Pointer openWriter(const std::filesystem::path& file);

// Whether `io` is ITK's class of this name.
bool isFormat(const itk::ImageIOBase& io, const char* name);

// PNG, JPEG and BMP hold one slice and no place in space.
bool isFlat(const itk::ImageIOBase& io);

// The region of `io` becomes all that its dimensions span.
void setWholeRegion(itk::ImageIOBase& io);

// Runs `work`, with ITK and its libraries silent, and turns what it throws into a
// std::runtime_error of one line: "cannot `what` `file`: why".
void explainFailures(const std::string& what, const std::filesystem::path& file,
                     const std::function<void()>& work);

}  // namespace diffuse
