// SPDX-License-Identifier: MIT
// The weighted sum of the fluxes of one element. Each pipeline has an order of its own, which
// decides the last bits of the result: orders.txt tells it and is evaluated as it stands.
#pragma once

#include "Neighbours.h"
#include "pipelines/axes.h"

namespace reference {

template <class T>
T weightedSum(diffusefilt::PipelineVariant variant, bool inLine, const Pulls<T>& pulls);

}  // namespace reference
