// SPDX-License-Identifier: MIT
// What can be timed on a picture: a pipeline, its limit, its peers.
#pragma once

#include <functional>
#include <string>

#include "Picture.h"
#include "support/Pipelines.h"

struct Work {
    std::function<void()> call;
    double elements;  // that one call deals with
};

// `kind` is one of
//   pipeline, halide, scalar   the filter, one step
//   itk       three steps of ITK's filter, if the program was built with it
//   limit     the operations of the definition, or its calls of exp, for an eighth of the picture,
//             and nothing else
//   copy      a parallel copy of the picture, which two threads cannot outrun
//   pool      the pipeline on the pool of two threads that Halide's runtime brings
//   each      the picture as many small ones, as high (3-D: deep) as it is wide, one call after
//             another
//   tasks     the same with each call as a task of TBB, and its own tasks in turn
//   empty     the library's parallel loop over as many rows or planes, without the filter
// The picture must stay in place. No call stands in what is returned for any other kind.
Work workOf(const std::string& kind, const support::Pipeline& pipeline, Picture& picture);

// Whether natural Halide and the scalar loop compute what the pipeline does, up to rounding.
bool peersAgree(const support::Pipeline& pipeline);
