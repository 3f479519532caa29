// The runtime's reporter of a null buffer argument, in the words that the library's
// messages have: "is NULL", where the installed release says "is nullptr". Weak like the
// rest of the runtime, and linked ahead of it; the message goes to halide_error through
// the dynamic symbol.
#include <HalideRuntime.h>

// String formatters of the runtime: append to what stands between the two pointers.
extern "C" char* halide_string_to_string(char* begin, char* end, const char* text);

extern "C" [[gnu::weak, gnu::visibility("default")]] int halide_error_buffer_argument_is_null(
    void* user_context, const char* buffer_name) {
    constexpr int capacity = 1024;
    if (auto* const message = static_cast<char*>(halide_malloc(user_context, capacity))) {
        char* const end = message + capacity;
        char* next = halide_string_to_string(message, end, "Buffer argument ");
        next = halide_string_to_string(next, end, buffer_name);
        halide_string_to_string(next, end, " is NULL");
        halide_error(user_context, message);
        halide_free(user_context, message);
    } else {
        halide_error(user_context, "Printer buffer allocation failed.\n");
    }
    return halide_error_code_buffer_argument_is_null;
}
