// SPDX-License-Identifier: MIT
// The description of a pipeline that its host can read. Every pipeline has its own copy of
// all texts and of the default value: nothing is shared between two records.
#pragma once

#include "frame/regions.h"
#include "pipelines/names.h"

namespace diffusefilt {

// A text held in place. Short ones end in zeros.
template <int capacity>
struct Text {
    char characters[capacity];

    constexpr explicit Text(const char* text) : characters{} {
        for (int i = 0; text[i] != '\0'; ++i) characters[i] = text[i];
    }
};

// The default of gradTIn. The runtime's record of a scalar has a constructor that is no
// constant expression, so the value is made as the double that it holds.
union DefaultThreshold {
    double f64;
    halide_scalar_value_t record;

    constexpr DefaultThreshold() : f64(0.0) {}
};

// The record that P_metadata returns, with all that it points to: constant data.
struct Metadata {
    Text<64> name;
    Text<64> target;
    Text<16> input{inputName};
    Text<16> threshold{thresholdName};
    Text<16> output;
    DefaultThreshold defaultThreshold{};
    halide_filter_argument_t arguments[3];
    halide_filter_metadata_t record;

    // `version` stays 0: the fields are those of the first version, and what later ones
    // added is empty.
    constexpr Metadata(const char* pipelineName, PipelineVariant variant)
        : name(pipelineName),
          target(rulesOf(variant.instructionSet).target),
          output(outputNameOf(variant.dimensions)),
          arguments{bufferOf(input, halide_argument_kind_input_buffer, variant),
                    {threshold.characters, halide_argument_kind_input_scalar, 0,
                     halide_type_t(halide_type_float, 64, 1), &defaultThreshold.record, nullptr,
                     nullptr, nullptr, nullptr},
                    bufferOf(output, halide_argument_kind_output_buffer, variant)},
          record{0, 3, arguments, target.characters, name.characters} {}

private:
    static constexpr halide_filter_argument_t bufferOf(const Text<16>& name,
                                                       halide_argument_kind_t kind,
                                                       PipelineVariant variant) {
        halide_filter_argument_t argument{};
        argument.name = name.characters;
        argument.kind = kind;
        argument.dimensions = variant.dimensions;
        argument.type = elementTypeOf(variant);
        return argument;
    }
};

}  // namespace diffusefilt
