// SPDX-License-Identifier: MIT
// What a pipeline is held against. Each does its work on one thread, but for the natural
// Halide filters, which run on the library's parallel loop.
#pragma once

#include <HalideRuntime.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "pipelines/axes.h"

namespace peers {

// The limits: what a pipeline cannot be faster than.

// All operations of the definition for as many vectors, on registers and independent of each
// other: makeLimitLoops.py writes a loop for each of many orders. None where libm has the
// exponential.
using LimitLoop = void (*)(int64_t vectors, float (*floor)(float));
std::span<const LimitLoop> limitLoops(std::string_view pipeline);
void run(LimitLoop loop, int64_t vectors);

// The least time of each for a vector, in nanoseconds.
std::vector<double> timesOf(std::span<const LimitLoop> loops);

// `count` calls of libm's exp, on the arguments in turn.
void callExp(const std::vector<double>& arguments, int64_t count);

// The filter as a host's own loop: one element after another, without vectors, the
// exponential from libm. `input` has the extents of `output`, and min 0 in each dimension.
void scalarLoop(diffusefilt::PipelineVariant variant, const halide_buffer_t& input,
                double threshold, const halide_buffer_t& output);

// The same filter in Halide with its natural schedule, by the pipeline's name.
using Step = int (*)(halide_buffer_t* input, double threshold, halide_buffer_t* output);
Step naturalHalide(std::string_view pipeline);

// `steps` steps of ITK's GradientAnisotropicDiffusionImageFilter on a dense buffer, on one
// thread. Its conductance is exponential too, of a difference together with those across it, with
// a threshold relative to the mean gradient. Ends a program that was built without ITK.
void itkSteps(const halide_buffer_t& input, int steps);

}  // namespace peers
