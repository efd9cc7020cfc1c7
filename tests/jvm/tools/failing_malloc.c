/* To be preloaded into a VM: fails one in FAILING_MALLOC of the allocations that come from the libraries of an agent
 * home (files named libvelora* and libq*), while the file FAILING_MALLOC_WHILE exists; without that variable from the
 * first one on. FAILING_MALLOC_SEED says which ones. Everybody else's allocations succeed. How often it failed one is
 * in the file FAILING_MALLOC_COUNT. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);

enum { MOST = 16, LOOK_EVERY = 512 };

static struct { uintptr_t from, to; } ranges[MOST]; /* grows only; read without a lock up to known */
static int known;
static int failing;
static unsigned oneIn;
static unsigned seed; /* 0: not read yet */
static unsigned calls;
static long failed;

/* Raw system calls and the stack: this runs inside malloc. */
static void findLibraries(void) {
    static char text[1 << 19];
    int fd = (int)syscall(SYS_openat, AT_FDCWD, "/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    size_t length = 0;
    for (long got; length < sizeof text - 1 &&
                   (got = syscall(SYS_read, fd, text + length, sizeof text - 1 - length)) > 0;)
        length += (size_t)got;
    syscall(SYS_close, fd);
    text[length] = 0;
    for (char *line = text; *line != 0;) {
        char *end = strchr(line, '\n');
        if (end == NULL) break;
        *end = 0;
        char *dash, *name = strrchr(line, '/');
        if (name != NULL && strstr(line, "r-xp") != NULL &&
            (strncmp(name, "/libvelora", 10) == 0 || strncmp(name, "/libq", 5) == 0)) {
            uintptr_t from = strtoull(line, &dash, 16), to = strtoull(dash + 1, NULL, 16);
            int i = 0;
            while (i < known && ranges[i].from != from) ++i;
            if (i == known && known < MOST) {
                ranges[i].from = from;
                ranges[i].to = to;
                __atomic_store_n(&known, known + 1, __ATOMIC_RELEASE);
            }
        }
        line = end + 1;
    }
}

static void look(void) {
    static int looking;
    if (__atomic_exchange_n(&looking, 1, __ATOMIC_ACQUIRE)) return;
    findLibraries();
    const char *one = getenv("FAILING_MALLOC"), *file = getenv("FAILING_MALLOC_WHILE");
    oneIn = one == NULL ? 0 : (unsigned)atoi(one);
    const char *first = getenv("FAILING_MALLOC_SEED");
    if (seed == 0) seed = first == NULL ? 1 : (unsigned)atoi(first) * 7919u;
    failing = oneIn > 0 && (file == NULL || access(file, F_OK) == 0);
    __atomic_store_n(&looking, 0, __ATOMIC_RELEASE);
}

static int fails(void *caller) {
    if (__atomic_fetch_add(&calls, 1, __ATOMIC_RELAXED) % LOOK_EVERY == 0) look();
    if (!failing) return 0;
    int n = __atomic_load_n(&known, __ATOMIC_ACQUIRE), ours = 0;
    for (int i = 0; i < n && !ours; ++i)
        ours = (uintptr_t)caller >= ranges[i].from && (uintptr_t)caller < ranges[i].to;
    if (!ours) return 0;
    unsigned x = __atomic_add_fetch(&seed, 0x9E3779B9u, __ATOMIC_RELAXED);
    x = (x ^ x >> 16) * 0x85EBCA6Bu;
    x = (x ^ x >> 13) * 0xC2B2AE35u;
    if ((x ^ x >> 16) % oneIn != 0) return 0;
    __atomic_fetch_add(&failed, 1, __ATOMIC_RELAXED);
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_calloc(count, size);
}

void *realloc(void *old, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_realloc(old, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_memalign(alignment, size);
}

__attribute__((destructor)) static void tell(void) {
    const char *file = getenv("FAILING_MALLOC_COUNT");
    FILE *out = file == NULL ? NULL : fopen(file, "we");
    if (out == NULL) return;
    fprintf(out, "%ld\n", failed);
    fclose(out);
}
