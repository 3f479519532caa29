// Expands the rows of one instruction set: the including file says which, by defining
// DIFFUSEFILT_PATHS_IF_<set> for each of the sets. No include guard, as a file of text.

#define PIPELINE(dimensions, connectivity, conduction, elementType, instructionSet)          \
    DIFFUSEFILT_PATHS_IF_##instructionSet(dimensions, connectivity, conduction, elementType, \
                                          instructionSet)
#include "frame/pipelines.def"
