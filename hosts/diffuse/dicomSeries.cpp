#include "dicomSeries.h"

#include <itkGDCMSeriesFileNames.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// The files of the series, in the order of their places along the normal.
std::vector<std::string> filesOf(const fs::path& folder) {
    const auto names = itk::GDCMSeriesFileNames::New();
    names->SetUseSeriesDetails(true);
    names->SetDirectory(folder.string());
    const std::vector<std::string> series = names->GetSeriesUIDs();
    if (series.empty()) throw std::runtime_error("this folder holds no DICOM series");
    if (series.size() > 1) {
        throw std::runtime_error("this folder holds " + std::to_string(series.size()) +
                                 " DICOM series, each needs a folder of its own");
    }
    return names->GetFileNames(series.front());
}

std::vector<double> normalOf(const Picture& slice) {
    const auto& x = slice.axes[0].direction;
    const auto& y = slice.axes[1].direction;
    return {x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]};
}

double placeAlong(const std::vector<double>& normal, const Picture& slice) {
    double place = 0;
    for (std::size_t i = 0; i < normal.size(); ++i) place += normal[i] * slice.origin[i];
    return place;
}

void requireAlike(const Picture& slice, const Picture& first) {
    constexpr double tolerance = 1e-4;  // of the components of a direction and of a spacing
    bool alike = slice.dimensions() == 2 && slice.axes.size() == 3 &&
                 slice.channels == first.channels && slice.pixelKind == first.pixelKind;
    for (int a = 0; a < 2 && alike; ++a) {
        const Axis& axis = slice.axes[a];
        const Axis& other = first.axes[a];
        alike = axis.extent == other.extent && std::abs(axis.spacing - other.spacing) < tolerance;
        for (int i = 0; i < 3; ++i) {
            alike = alike && std::abs(axis.direction[i] - other.direction[i]) < tolerance;
        }
    }
    if (!alike) throw std::runtime_error("the slices differ in shape, spacing or direction");
}

// The distance of neighbouring slices, all but even: places are rounded to few digits.
double evenDistance(const std::vector<double>& places) {
    const double mean = (places.back() - places.front()) / static_cast<double>(places.size() - 1);
    for (std::size_t i = 1; i < places.size(); ++i) {
        const double distance = places[i] - places[i - 1];
        if (!(mean > 0) || std::abs(distance - mean) > 0.05 * mean) {
            throw std::runtime_error("its slices do not stand in even distances: one of " +
                                     std::to_string(distance) + " where the mean is " +
                                     std::to_string(mean));
        }
    }
    return mean;
}

}  // namespace

Picture readSeries(const fs::path& folder,
                   const std::function<Picture(const fs::path&)>& readSlice) {
    const std::vector<std::string> files = filesOf(folder);
    Picture volume = readSlice(files.front());
    if (files.size() == 1) return volume;

    const Picture first = volume;
    const std::vector<double> normal = normalOf(first);
    std::vector<std::vector<double>> samples(first.channels);
    std::vector<double> places;
    for (const std::string& file : files) {
        const Picture slice = readSlice(file);
        requireAlike(slice, first);
        if (slice.sampleType != first.sampleType) volume.sampleType = SampleType::float64;
        places.push_back(placeAlong(normal, slice));
        for (int c = 0; c < slice.channels; ++c) {
            const auto channel = slice.channel(c);
            samples[c].insert(samples[c].end(), channel.begin(), channel.end());
        }
    }
    volume.axes[2] = {static_cast<int>(files.size()), evenDistance(places), normal};
    volume.values.clear();
    for (const auto& channel : samples) {
        volume.values.insert(volume.values.end(), channel.begin(), channel.end());
    }
    return volume;
}

}  // namespace diffuse
