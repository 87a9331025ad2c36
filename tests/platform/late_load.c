/* A plain C host that opens the library named by its argument late, uses it, and closes it again. Its own
 * heap must be the C runtime's before, during and after, and a thread that has used the library may end after
 * it has been closed.
 */
#define _GNU_SOURCE
#include "fenmemoryallocator864.h"

#include <dlfcn.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef void* (*AllocateFunction)(size_t size, const char* file, int line);
typedef void (*FreeFunction)(void* p, size_t size);

static AllocateFunction s_allocate;
static FreeFunction s_free;
static pthread_barrier_t s_used;
static pthread_barrier_t s_closed;

static void require(int condition, const char* what) {
    if (!condition) {
        const char* const error = dlerror();
        fprintf(stderr, "late_load: %s: %s\n", what, error != NULL ? error : "failed");
        exit(1);
    }
}

static const void* home(const char* name) {
    Dl_info info;
    void* const symbol = dlsym(RTLD_DEFAULT, name);
    return symbol != NULL && dladdr(symbol, &info) != 0 ? info.dli_fbase : NULL;
}

/* In sanitizer builds the heap is the sanitizer runtime's. */
static void requireOwnHeap(const char* when) {
    static const char* const names[] = {"malloc", "calloc", "realloc", "free", "malloc_usable_size"};
    const void* const sanitizer = home("__sanitizer_get_ownership");
    const void* const expected = sanitizer != NULL ? sanitizer : home("gnu_get_libc_version");
    require(expected != NULL, "the C runtime's heap is found");
    for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i) {
        if (home(names[i]) != expected) {
            fprintf(stderr, "late_load: %s is not the host's %s\n", names[i], when);
            exit(1);
        }
    }
    require(home("mi_malloc") == NULL, "no other allocator is in the global scope");
    char* const p = malloc(100);
    require(p != NULL, "malloc works");
    memset(p, 1, 100);
    free(p);
}

static void useLibrary(void) {
    for (size_t size = 0; size < 3000; size += 7) {
        void* const p = s_allocate(size, "late_load", 1);
        require(p != NULL, "a block");
        require((uintptr_t)p % FENMEM_800_ALIGNMENT == 0, "an aligned block");
        memset(p, 2, size);
        s_free(p, size);
    }
}

static void* useAndOutliveLibrary(void* unused) {
    useLibrary();
    pthread_barrier_wait(&s_used);
    pthread_barrier_wait(&s_closed);
    return unused;
}

/* ISO C has no conversion between the two kinds of pointers. */
static void findFunction(void* library, const char* name, void* function) {
    void* const symbol = dlsym(library, name);
    require(symbol != NULL, name);
    memcpy(function, &symbol, sizeof symbol);
}

static void openUseAndClose(const char* path, int scope) {
    pthread_t thread;
    void* const library = dlopen(path, RTLD_NOW | scope);
    require(library != NULL, "dlopen");
    requireOwnHeap("while the library is open");
    findFunction(library, "fenmem_800_allocate_dbg", &s_allocate);
    findFunction(library, "fenmem_800_free", &s_free);
    useLibrary();

    require(pthread_barrier_init(&s_used, NULL, 2) == 0, "pthread_barrier_init");
    require(pthread_barrier_init(&s_closed, NULL, 2) == 0, "pthread_barrier_init");
    require(pthread_create(&thread, NULL, useAndOutliveLibrary, NULL) == 0, "pthread_create");
    pthread_barrier_wait(&s_used);
    require(dlclose(library) == 0, "dlclose");
    requireOwnHeap("after the library is closed");
    pthread_barrier_wait(&s_closed);
    require(pthread_join(thread, NULL) == 0, "pthread_join");
    requireOwnHeap("after the last thread that used the library");
    pthread_barrier_destroy(&s_used);
    pthread_barrier_destroy(&s_closed);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: late_load LIBRARY\n");
        return 2;
    }
    requireOwnHeap("before the library is opened");
    openUseAndClose(argv[1], RTLD_LOCAL);
    openUseAndClose(argv[1], RTLD_GLOBAL);
    puts("late_load: ok");
    return 0;
}
