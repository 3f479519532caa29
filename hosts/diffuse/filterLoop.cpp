#include "filterLoop.h"

#include <HalideRuntime.h>

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace diffuse {

namespace {

// The library reports on the thread that called the entry.
thread_local std::string libraryMessage;

void keepMessage(void* /*userContext*/, const char* message) {
    libraryMessage = message;
    while (libraryMessage.ends_with('\n')) libraryMessage.pop_back();
}

// Shape of a dense image; its last strides must fit the 32 bits of the records.
std::vector<halide_dimension_t> denseShape(const Picture& picture) {
    std::vector<halide_dimension_t> shape;
    std::int64_t stride = 1;
    for (const Axis& axis : picture.axes) {
        if (stride > std::numeric_limits<std::int32_t>::max()) {
            throw std::runtime_error("the picture is too large for the library's records");
        }
        shape.emplace_back(0, axis.extent, static_cast<std::int32_t>(stride));
        stride *= axis.extent;
    }
    return shape;
}

template <typename Element>
halide_buffer_t wrap(std::vector<Element>& elements, std::vector<halide_dimension_t>& shape) {
    halide_buffer_t buffer{};
    buffer.host = reinterpret_cast<std::uint8_t*>(elements.data());
    buffer.type = halide_type_of<Element>();
    buffer.dimensions = static_cast<int>(shape.size());
    buffer.dim = shape.data();
    return buffer;
}

template <typename Element>
void filterIn(const Pipeline& pipeline, double threshold, int iterations, Picture& picture) {
    std::vector<halide_dimension_t> shape = denseShape(picture);
    std::vector<Element> image(picture.values.begin(), picture.values.end());
    std::vector<Element> next(image.size());
    for (int i = 0; i < iterations; ++i) {
        halide_buffer_t input = wrap(image, shape);
        halide_buffer_t output = wrap(next, shape);
        const int status = pipeline.step(&input, threshold, &output);
        if (status != 0) {
            throw std::runtime_error(std::string(pipeline.name) + " failed with status " +
                                     std::to_string(status) + ": " + libraryMessage);
        }
        image.swap(next);
    }
    std::copy(image.begin(), image.end(), picture.values.begin());
}

}  // namespace

void filter(const Pipeline& pipeline, double threshold, int iterations, Picture& picture) {
    halide_set_error_handler(keepMessage);
    if (pipeline.variant.elementType == diffusefilt::ElementType::float64) {
        filterIn<double>(pipeline, threshold, iterations, picture);
    } else {
        filterIn<float>(pipeline, threshold, iterations, picture);
    }
}

}  // namespace diffuse
