// SPDX-License-Identifier: MIT
// The closure records: what the entry hands to the tasks of its parallel loop. Written
// once, read-only from then on, and alive until the loop has returned. The order of the
// fields is part of the interface to whoever replaces the parallel loop.
//
//   outMin0, outMin1              first output column and row
//   outExtent1, outEnd1           output rows; one past the last
//   outStride1, outStride2        output strides, in elements
//   gradTIn                       the threshold, in the element type
//   inputExtent1, inputExtent2    rows and planes of the input
//   inputStride1, inputStride2    input strides, in elements
//   inputOffset, outputOffset     index of the coordinates (0, 0, 0), negated
//   inputMax0, inputMax1          highest column and row of the input
//   lastVectorX                   column at which the last vector of a row starts
//   vectorCount                   vectors in a row
//   leftVectorCount               vectors at the left whose columns may need a clamp
//   interiorVectorEnd             first of those at the right
//   unclampedSpan                 last column, from the row's start, at which a vector is
//                                 free of the upper clamp; may be negative
//   interiorRowBegin, ...End      rows whose neighbour rows all lie inside; planes alike
//   unclampedRowEnd, ...PlaneEnd  first row (plane) that needs the upper clamp
//   sqrtThree                     from which the corner weight is worked out
//   inputBuffer, outputBuffer     the call's
// The tasks do not read the buffers, nor the bands of planes, rows and vectors.
#pragma once

#include <HalideRuntime.h>

#include "pipelines/axes.h"

namespace diffusefilt {

template <Connectivity, class T>
struct RowClosure;

template <>
struct RowClosure<Connectivity::minimal, double> {
    int32_t outMin0, interiorRowEnd, interiorRowBegin, outStride1;
    double gradTIn;
    int32_t inputExtent1, inputStride1, interiorVectorEnd;
    int64_t inputOffset, outputOffset;
    int32_t inputMax0, lastVectorX, vectorCount, leftVectorCount;
    double* outputHost;
    halide_buffer_t* outputBuffer;
    const double* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct RowClosure<Connectivity::minimal, float> {
    int32_t outMin0, interiorRowEnd, interiorRowBegin, outStride1;
    int32_t inputExtent1, inputStride1, interiorVectorEnd;
    int64_t inputOffset;
    float gradTIn;
    int64_t outputOffset;
    int32_t inputMax0, lastVectorX, vectorCount, leftVectorCount;
    float* outputHost;
    halide_buffer_t* outputBuffer;
    const float* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct RowClosure<Connectivity::maximal, double> {
    int32_t outMin0, unclampedRowEnd, outStride1;
    double gradTIn;
    int32_t inputExtent1, inputStride1, unclampedSpan;
    int64_t inputOffset, outputOffset;
    int32_t vectorCount, lastVectorX, inputMax0;
    double* outputHost;
    halide_buffer_t* outputBuffer;
    const double* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct RowClosure<Connectivity::maximal, float> {
    int32_t outMin0, unclampedRowEnd, outStride1;
    int32_t inputExtent1, inputStride1, unclampedSpan;
    int64_t inputOffset;
    float gradTIn;
    int64_t outputOffset;
    int32_t vectorCount, lastVectorX, inputMax0;
    float* outputHost;
    halide_buffer_t* outputBuffer;
    const float* inputHost;
    halide_buffer_t* inputBuffer;
};

template <Connectivity, class T>
struct PlaneClosure;

template <>
struct PlaneClosure<Connectivity::minimal, double> {
    int32_t outExtent1, outMin0, outMin1, interiorPlaneEnd, interiorPlaneBegin;
    int32_t outStride1, outStride2;
    double gradTIn;
    int32_t inputExtent1, inputExtent2, inputStride1, inputStride2, interiorRowEnd;
    int64_t inputOffset, outputOffset;
    int32_t interiorVectorEnd, outEnd1, inputMax0, inputMax1, lastVectorX, vectorCount;
    int32_t interiorRowBegin, leftVectorCount;
    double* outputHost;
    halide_buffer_t* outputBuffer;
    const double* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct PlaneClosure<Connectivity::minimal, float> {
    int32_t outExtent1, outMin0, outMin1, interiorPlaneEnd, interiorPlaneBegin;
    int32_t outStride1, outStride2;
    int32_t inputExtent1, inputExtent2, inputStride1, inputStride2, interiorRowEnd;
    int64_t inputOffset;
    float gradTIn;
    int64_t outputOffset;
    int32_t interiorVectorEnd, outEnd1, inputMax0, inputMax1, lastVectorX, vectorCount;
    int32_t interiorRowBegin, leftVectorCount;
    float* outputHost;
    halide_buffer_t* outputBuffer;
    const float* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct PlaneClosure<Connectivity::maximal, double> {
    int32_t outExtent1, outMin0, outMin1, unclampedPlaneEnd, outStride1, outStride2;
    double gradTIn;
    int32_t inputExtent1, inputExtent2, inputStride1, inputStride2;
    int32_t unclampedRowEnd, unclampedSpan;
    double sqrtThree;
    int64_t inputOffset, outputOffset;
    int32_t vectorCount, lastVectorX, inputMax0, outEnd1, inputMax1;
    double* outputHost;
    halide_buffer_t* outputBuffer;
    const double* inputHost;
    halide_buffer_t* inputBuffer;
};

template <>
struct PlaneClosure<Connectivity::maximal, float> {
    int32_t outExtent1, outMin0, outMin1, unclampedPlaneEnd, outStride1, outStride2;
    int32_t inputExtent1, inputExtent2, inputStride1, inputStride2;
    int32_t unclampedRowEnd, unclampedSpan;
    int64_t inputOffset;
    float gradTIn;
    int64_t outputOffset;
    int32_t vectorCount, lastVectorX, inputMax0, outEnd1, inputMax1;
    float* outputHost;
    halide_buffer_t* outputBuffer;
    const float* inputHost;
    halide_buffer_t* inputBuffer;
};

}  // namespace diffusefilt
