#pragma once

#include <cstddef>

extern "C" {

// The C library's allocator under its other names, for definitions that take its place: dlsym()
// would itself allocate.
void* __libc_malloc(size_t byteCount);
void* __libc_calloc(size_t count, size_t byteCount);
void* __libc_realloc(void* storage, size_t byteCount);
void* __libc_memalign(size_t alignment, size_t byteCount);
void __libc_free(void* storage);

}  // extern "C"
