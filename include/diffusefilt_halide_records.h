// SPDX-License-Identifier: MIT
/** @file
 * The records and functions of Halide's runtime that a host of libdiffusefilt_halide.so needs.
 * diffusefilt_halide.h includes this where there is no HalideRuntime.h, which has all of this and
 * more, and never both. The binary interface is the same, so objects compiled with either may be
 * linked; the members that the records of HalideRuntime.h have in C++ are not here.
 */
#ifndef DIFFUSEFILT_HALIDE_RECORDS_H
#define DIFFUSEFILT_HALIDE_RECORDS_H

#ifdef HALIDE_HALIDERUNTIME_H
#error "HalideRuntime.h is there: include diffusefilt_halide.h, which uses it"
#endif

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
/** What a record of C++ holds before it is filled. */
#define DIFFUSEFILT_ZERO = 0
#else
#define DIFFUSEFILT_ZERO
#endif

typedef enum halide_type_code_t
#ifdef __cplusplus
    : uint8_t
#endif
{ halide_type_int = 0,
  halide_type_uint = 1,
  halide_type_float = 2,
  halide_type_handle = 3,
  halide_type_bfloat = 4 } halide_type_code_t;

/** The type of an element: {halide_type_float, 32 or 64, 1} in this library. */
struct halide_type_t {
#ifdef __cplusplus
    halide_type_code_t code;
#else
    uint8_t code; /**< a halide_type_code_t */
#endif
    uint8_t bits;
    uint16_t lanes;
};

/** Coordinates min .. min + extent - 1; neighbours are `stride` elements apart. */
typedef struct halide_dimension_t {
    int32_t min DIFFUSEFILT_ZERO, extent DIFFUSEFILT_ZERO, stride DIFFUSEFILT_ZERO;
    uint32_t flags DIFFUSEFILT_ZERO; /**< 0 */
} halide_dimension_t;

struct halide_device_interface_t;

/** An image or a volume in memory. */
typedef struct halide_buffer_t {
    uint64_t device;                                          /**< 0 */
    const struct halide_device_interface_t* device_interface; /**< null */
    uint8_t* host;  /**< the element at the min of each dimension */
    uint64_t flags; /**< 0 */
    struct halide_type_t type;
    int32_t dimensions;
    halide_dimension_t* dim; /**< `dimensions` of them */
    void* padding;
} halide_buffer_t;

struct halide_scalar_value_t {
    union {
        bool b;
        int8_t i8;
        int16_t i16;
        int32_t i32;
        int64_t i64;
        uint8_t u8;
        uint16_t u16;
        uint32_t u32;
        uint64_t u64;
        float f32;
        double f64;
        void* handle;
    } u;
};

enum halide_argument_kind_t {
    halide_argument_kind_input_scalar = 0,
    halide_argument_kind_input_buffer = 1,
    halide_argument_kind_output_buffer = 2
};

struct halide_filter_argument_t {
    const char* name;
    int32_t kind; /**< a halide_argument_kind_t */
    int32_t dimensions;
    struct halide_type_t type;
    const struct halide_scalar_value_t *scalar_def, *scalar_min, *scalar_max, *scalar_estimate;
    int64_t const* const* buffer_estimates;
};

/** What P_metadata returns. */
struct halide_filter_metadata_t {
    int32_t version;
    int32_t num_arguments;
    const struct halide_filter_argument_t* arguments;
    const char* target;
    const char* name;
};

#undef DIFFUSEFILT_ZERO

/* Messages. A function that sets returns what was set before. */
void halide_print(void* user_context, const char* words);
void halide_default_print(void* user_context, const char* words);
typedef void (*halide_print_t)(void*, const char*);
halide_print_t halide_set_custom_print(halide_print_t print);
void halide_error(void* user_context, const char* words);
void halide_default_error(void* user_context, const char* words);
typedef void (*halide_error_handler_t)(void*, const char*);
halide_error_handler_t halide_set_error_handler(halide_error_handler_t handler);

/* The parallel loop and its tasks. */
typedef int (*halide_task_t)(void* user_context, int task_number, uint8_t* closure);
typedef int (*halide_do_par_for_t)(void*, halide_task_t, int, int, uint8_t*);
typedef int (*halide_do_task_t)(void*, halide_task_t, int, uint8_t*);
int halide_do_par_for(void* user_context, halide_task_t task, int min, int size, uint8_t* closure);
int halide_default_do_par_for(void* user_context, halide_task_t task, int min, int size,
                              uint8_t* closure);
halide_do_par_for_t halide_set_custom_do_par_for(halide_do_par_for_t do_par_for);
int halide_do_task(void* user_context, halide_task_t task, int task_number, uint8_t* closure);
int halide_default_do_task(void* user_context, halide_task_t task, int task_number,
                           uint8_t* closure);
halide_do_task_t halide_set_custom_do_task(halide_do_task_t do_task);
int halide_set_num_threads(int n);

/* Memory of the runtime. */
void* halide_malloc(void* user_context, size_t size);
void halide_free(void* user_context, void* memory);
void* halide_default_malloc(void* user_context, size_t size);
void halide_default_free(void* user_context, void* memory);
typedef void* (*halide_malloc_t)(void*, size_t);
typedef void (*halide_free_t)(void*, void*);
halide_malloc_t halide_set_custom_malloc(halide_malloc_t user_malloc);
halide_free_t halide_set_custom_free(halide_free_t user_free);

#ifdef __cplusplus
}
#endif

#endif
