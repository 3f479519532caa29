// SPDX-License-Identifier: MIT
/* Smooths a noisy edge: 10 steps on a 64 x 48 image of doubles. */
#include <diffusefilt_halide.h>
#include <stdio.h>
#include <stdlib.h>

enum { width = 64, height = 48 };

static void fail(void *user_context, const char *message) {
    (void)user_context;
    fprintf(stderr, "smooth: %s\n", message);
    exit(1);
}

int main(void) {
    static double image[2][height][width];
    halide_dimension_t shape[2] = {{0, width, 1, 0}, {0, height, width, 0}};
    struct halide_buffer_t buffer[2] = {0};
    halide_set_error_handler(fail);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) image[0][y][x] = (x < 32 ? 50 : 200) + rand() % 21 - 10;
    for (int i = 0; i < 2; ++i) {
        buffer[i].host = (uint8_t *)image[i];
        buffer[i].type.code = halide_type_float;
        buffer[i].type.bits = 64;
        buffer[i].type.lanes = 1;
        buffer[i].dimensions = 2;
        buffer[i].dim = shape;
    }
    for (int step = 0; step < 10; ++step)
        diffusefilt2_minimal_quadratic_float64_none(&buffer[step % 2], 20.0, &buffer[1 - step % 2]);
    for (int x = 28; x < 36; ++x) printf("%.1f ", image[0][24][x]);
    printf("\n");
    return 0;
}
