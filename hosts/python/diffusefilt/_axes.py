# SPDX-License-Identifier: MIT
"""The axes on which a caller chooses a pipeline, in the words of the exported names."""
from __future__ import annotations

from typing import Literal, get_args

Connectivity = Literal["minimal", "maximal"]
Conduction = Literal["quadratic", "exponential"]
InstructionSet = Literal["auto", "none", "avx", "avx2"]

MINIMAL: Connectivity = "minimal"
QUADRATIC: Conduction = "quadratic"
EXPONENTIAL: Conduction = "exponential"

CONNECTIVITIES = get_args(Connectivity)
CONDUCTIONS = get_args(Conduction)
INSTRUCTION_SETS = get_args(InstructionSet)[1:]  # in rising order of what they ask of the processor

# What each set asks of a processor beyond the set before it, as /proc/cpuinfo names it.
FEATURES = {"none": set[str](), "avx": {"avx", "sse4_1"}, "avx2": {"avx2", "fma", "bmi1"}}
