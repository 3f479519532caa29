#include "schedules/paths.h"

namespace diffusefilt {

int filterInParallel(PrepareLoop prepare, int dimensions, halide_buffer_t* input, double gradTIn,
                     halide_buffer_t* output) {
    alignas(int64_t) uint8_t record[closureCapacity];
    const halide_task_t body = prepare(record, input, gradTIn, output);
    const halide_dimension_t& loop = output->dim[dimensions - 1];
    return halide_do_par_for(nullptr, body, loop.min, loop.extent, record);
}

}  // namespace diffusefilt
