// SPDX-License-Identifier: MIT
/// @file
/// A thin layer over diffusefilt_halide.h for hosts in C++17: pipelines by name or by axes,
/// the best instruction set of this processor, views over existing memory, steps in turn
/// between two buffers, and errors as exceptions. Header only; nothing of it stands in the
/// shared object.
///
///     namespace filter = diffusefilt_host;
///     const filter::Pipeline& pipeline = filter::findPipeline(
///         {2, filter::Connectivity::minimal, filter::Conduction::quadratic,
///          filter::ElementType::float64, filter::bestInstructionSet()});
///     const auto image = filter::View<double>::dense(pixels.data(), {width, height});
///     const auto scratch = filter::View<double>::dense(spare.data(), {width, height});
///     const auto result = pipeline.iterate(image, 30.0, scratch, 10);
///
/// Error handler. The library reports its words through a handler that the whole process
/// shares. The first call through this layer puts one of its own there, once: the words of a
/// call made through the layer go into the exception and nowhere else, those of any other call
/// to the handler found. So a host that has its own installs it before that first call. One
/// that is installed later, or a halide_error of the host's, receives the words of every call,
/// and if it returns, the exception carries the code alone. A module that uses the layer and
/// is unloaded must put another handler in place first.
#pragma once

#include <cpuid.h>
#include <diffusefilt_halide.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace diffusefilt_host {

/// Neighbours of an element: 4 or 8 in 2-D, 6 or 26 in 3-D.
enum class Connectivity { minimal, maximal };
/// Conductance of a difference d under the threshold K: 1 / (1 + (d / K)^2) or exp(-(d / K)^2).
enum class Conduction { quadratic, exponential };
/// Element of both buffers and of all arithmetic.
enum class ElementType { float32, float64 };
/// In rising order of what they ask of the processor. Results differ between them by rounding.
enum class InstructionSet { none, avx, avx2 };

/// The words that the values of an axis have in the exported names, in the order of the values.
template <class Axis>
constexpr auto wordsOf() {
    if constexpr (std::is_same_v<Axis, Connectivity>) {
        return std::array{"minimal", "maximal"};
    } else if constexpr (std::is_same_v<Axis, Conduction>) {
        return std::array{"quadratic", "exponential"};
    } else if constexpr (std::is_same_v<Axis, ElementType>) {
        return std::array{"float32", "float64"};
    } else {
        static_assert(std::is_same_v<Axis, InstructionSet>, "this type is no axis with words");
        return std::array{"none", "avx", "avx2"};
    }
}

template <class Axis>
constexpr const char* wordOf(Axis value) {
    return wordsOf<Axis>()[static_cast<std::size_t>(value)];
}

/// The value that a word names.
/// @throws std::invalid_argument if the axis has no such word.
template <class Axis>
Axis fromWord(std::string_view word) {
    constexpr auto words = wordsOf<Axis>();
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (word == words[i]) return static_cast<Axis>(i);
    }
    throw std::invalid_argument("no axis value is named " + std::string(word));
}

/// A point on the five axes: one pipeline.
struct Axes {
    int dimensions;  ///< 2 or 3
    Connectivity connectivity;
    Conduction conduction;
    ElementType elementType;
    InstructionSet instructionSet;

    /// As exported.
    std::string name() const {
        return "diffusefilt" + std::to_string(dimensions) + "_" + wordOf(connectivity) + "_" +
               wordOf(conduction) + "_" + wordOf(elementType) + "_" + wordOf(instructionSet);
    }
};

/// What the processor and the operating system say of themselves.
struct ProcessorRegisters {
    std::uint32_t leaf1Ecx = 0;  ///< CPUID leaf 1
    std::uint32_t leaf7Ebx = 0;  ///< CPUID leaf 7, subleaf 0
    std::uint64_t xcr0 = 0;      ///< register states that the operating system keeps

    static ProcessorRegisters read() {
        ProcessorRegisters registers;
        unsigned a = 0;
        unsigned b = 0;
        unsigned c = 0;
        unsigned d = 0;
        if (__get_cpuid(1, &a, &b, &c, &d) != 0) registers.leaf1Ecx = c;
        if (__get_cpuid_count(7, 0, &a, &b, &c, &d) != 0) registers.leaf7Ebx = b;
        if ((registers.leaf1Ecx & bit_OSXSAVE) != 0) {
            __asm__("xgetbv" : "=a"(a), "=d"(d) : "c"(0));
            registers.xcr0 = std::uint64_t{d} << 32 | a;
        }
        return registers;
    }
};

/// The highest set that this processor, or one with these registers, can execute: `avx` asks
/// for AVX, SSE4.1 and the operating system's care for the AVX state, `avx2` for AVX2, FMA3 and
/// BMI1 besides.
inline InstructionSet bestInstructionSet(
    const ProcessorRegisters& registers = ProcessorRegisters::read()) {
    constexpr std::uint64_t sseAndAvxState = 6;
    const auto hasAll = [](std::uint64_t bits, std::uint64_t wanted) {
        return (bits & wanted) == wanted;
    };
    if (!hasAll(registers.leaf1Ecx, bit_OSXSAVE | bit_AVX | bit_SSE4_1) ||
        !hasAll(registers.xcr0, sseAndAvxState)) {
        return InstructionSet::none;
    }
    return hasAll(registers.leaf1Ecx, bit_FMA) && hasAll(registers.leaf7Ebx, bit_AVX2 | bit_BMI)
               ? InstructionSet::avx2
               : InstructionSet::avx;
}

/// Existing memory seen as an image or a volume; owns and copies nothing. `Element` is float or
/// double, const for an input that must not be written.
template <class Element>
class View {
public:
    /// `elements` is the element at the min coordinates; `shape` has min, extent and stride
    /// (in elements) of 2 or 3 dimensions. The pipelines ask for a stride of 1 in dimension 0;
    /// the others are free. Coordinates are absolute and the edges that a step replicates stand
    /// at 0 and extent - 1, so that the min of a whole image is 0.
    /// @throws std::invalid_argument for no memory or another number of dimensions.
    View(Element* elements, std::initializer_list<halide_dimension_t> shape)
        : View(elements, shape.size()) {
        std::copy(shape.begin(), shape.end(), shape_.begin());
    }

    /// A view of elements that may be written serves as one of elements that may not.
    template <class Other, class = std::enable_if_t<std::is_same_v<const Other, Element>>>
    View(const View<Other>& other)
        : elements_(other.data()), dimensions_(other.dimensions()), shape_(other.shape()) {}

    /// Elements without gaps, dimension 0 innermost, from coordinate 0 on.
    /// @throws std::length_error if a stride does not fit 32 bits, and as the constructor.
    static View dense(Element* elements, std::initializer_list<std::int32_t> extents) {
        View view(elements, extents.size());
        std::int64_t stride = 1;
        auto dimension = view.shape_.begin();
        for (const std::int32_t extent : extents) {
            if (stride > std::numeric_limits<std::int32_t>::max()) {
                throw std::length_error("a stride of the view exceeds 32 bits");
            }
            *dimension++ = {0, extent, static_cast<std::int32_t>(stride)};
            stride *= extent;
        }
        return view;
    }

    Element* data() const { return elements_; }
    int dimensions() const { return dimensions_; }
    /// The entries beyond dimensions() are zero.
    const std::array<halide_dimension_t, 3>& shape() const { return shape_; }

    /// The element at absolute coordinates, which are not tested.
    Element& operator()(std::int32_t x, std::int32_t y, std::int32_t z = 0) const {
        const auto offset = [this](int d, std::int64_t at) {
            return (at - shape_[d].min) * shape_[d].stride;
        };
        return elements_[offset(0, x) + offset(1, y) + offset(2, z)];
    }

    /// The view as the functions of diffusefilt_halide.h take it. Its dimensions stand in the
    /// view, which must stay in place as long as the record is used.
    halide_buffer_t record() const {
        using Plain = std::remove_const_t<Element>;
        halide_buffer_t buffer{};
        buffer.host = reinterpret_cast<std::uint8_t*>(const_cast<Plain*>(elements_));
        buffer.type.code = halide_type_float;
        buffer.type.bits = 8 * sizeof(Plain);
        buffer.type.lanes = 1;
        buffer.dimensions = dimensions_;
        buffer.dim = const_cast<halide_dimension_t*>(shape_.data());
        return buffer;
    }

private:
    View(Element* elements, std::size_t dimensions)
        : elements_(elements), dimensions_(static_cast<int>(dimensions)) {
        if (elements == nullptr) throw std::invalid_argument("a view needs memory");
        if (dimensions != 2 && dimensions != 3) {
            throw std::invalid_argument("a view has 2 or 3 dimensions");
        }
    }

    Element* elements_;
    int dimensions_;
    std::array<halide_dimension_t, 3> shape_{};
};

/// A call that did not return 0.
class Error : public std::runtime_error {
public:
    Error(std::string_view pipeline, int status, const std::string& words)
        : std::runtime_error(std::string(pipeline) + " failed with status " +
                             std::to_string(status) + (words.empty() ? "" : ": ") + words),
          status_(status),
          words_(words) {}

    /// The code that the pipeline returned, not 0.
    int status() const { return status_; }
    /// The library's message; empty where another handler received it.
    const std::string& words() const { return words_; }

private:
    int status_;
    std::string words_;
};

namespace detail {

// Where the words of the call that this thread makes through the layer go.
inline thread_local std::string* wordsOfCall = nullptr;
inline std::atomic<halide_error_handler_t> handlerFound{halide_default_error};

inline void receiveWords(void* userContext, const char* message) {
    if (wordsOfCall == nullptr) return handlerFound.load()(userContext, message);
    *wordsOfCall = message;
}

// For the time of one call. A thread that waits for its tasks may make another meanwhile.
class WordsOfCall {
public:
    WordsOfCall() {
        static const halide_error_handler_t found = halide_set_error_handler(receiveWords);
        handlerFound = found;
        wordsOfCall = &words;
    }
    ~WordsOfCall() { wordsOfCall = outer_; }
    WordsOfCall(const WordsOfCall&) = delete;
    WordsOfCall& operator=(const WordsOfCall&) = delete;

    std::string words;

private:
    std::string* outer_ = wordsOfCall;
};

}  // namespace detail

/// One pipeline of the library. Any number of threads may use it at once on separate memory.
struct Pipeline {
    const char* name;  ///< as exported
    int dimensions;    ///< 2 or 3
    int (*entry)(halide_buffer_t* keyimForType, double gradTIn, halide_buffer_t* output);

    /// Filters `input` into `output`, which must be separate memory. `threshold` is the gradient
    /// threshold K, in the units of the elements; no value of it is refused. The extents need
    /// not match: see diffusefilt_halide.h.
    /// @throws Error if the library refuses the call, of another element type for one;
    ///     std::invalid_argument for views of another number of dimensions than the pipeline's
    ///     and for two views of the same memory.
    template <class Element>  // that of the output: common_type is not deduced from
    void step(const std::common_type_t<View<const Element>>& input, double threshold,
              const View<Element>& output) const {
        if (input.dimensions() != dimensions || output.dimensions() != dimensions) {
            throw std::invalid_argument(std::string(name) + " takes views of " +
                                        std::to_string(dimensions) + " dimensions");
        }
        if (input.data() == output.data()) {
            throw std::invalid_argument("input and output must be separate memory");
        }
        halide_buffer_t in = input.record();
        halide_buffer_t out = output.record();
        detail::WordsOfCall call;
        const int status = entry(&in, threshold, &out);
        if (status != 0) throw Error(name, status, call.words);
    }

    /// Filters `image` `steps` times, in turn between the two memories, and returns the view
    /// that holds the result: `image` after an even number of steps, `scratch` after an odd
    /// one. The other holds the step before. Both must have the same min and extents.
    /// @throws what step throws, and std::invalid_argument for a negative number of steps and
    ///     for shapes that differ.
    template <class Element>
    View<Element> iterate(const View<Element>& image, double threshold,
                          const View<Element>& scratch, int steps) const {
        if (steps < 0) throw std::invalid_argument("the number of steps is negative");
        for (int d = 0; d < dimensions; ++d) {
            if (image.shape()[d].min != scratch.shape()[d].min ||
                image.shape()[d].extent != scratch.shape()[d].extent) {
                throw std::invalid_argument("image and scratch differ in shape");
            }
        }
        const View<Element>* views[2] = {&image, &scratch};
        for (int i = 0; i < steps; ++i) step(*views[i % 2], threshold, *views[(i + 1) % 2]);
        return *views[steps % 2];
    }
};

/// All pipelines, in the library's order.
inline const auto& pipelines() {
#define DIFFUSEFILT_HOST_PIPELINE(name) Pipeline{#name, #name[11] - '0', &::name},
    static const std::array all{DIFFUSEFILT_FOR_EACH_PIPELINE(DIFFUSEFILT_HOST_PIPELINE)};
#undef DIFFUSEFILT_HOST_PIPELINE
    return all;
}

/// @throws std::invalid_argument if the library has no pipeline of this name.
inline const Pipeline& findPipeline(std::string_view name) {
    for (const Pipeline& pipeline : pipelines()) {
        if (pipeline.name == name) return pipeline;
    }
    throw std::invalid_argument("the library has no pipeline " + std::string(name));
}

/// @throws std::invalid_argument for other dimensions than 2 and 3.
inline const Pipeline& findPipeline(const Axes& axes) {
    return findPipeline(axes.name());
}

}  // namespace diffusefilt_host
