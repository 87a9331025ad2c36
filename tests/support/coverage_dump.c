/* Linked into every program and library of a coverage build (scripts/coverage), with the linker's --wrap for
   _exit and abort: a process that ends so would lose its counts. Each of them has counters of its own, so
   they are listed. */
void __gcov_dump(void);
void __real_abort(void) __attribute__((noreturn));
void __real__exit(int status) __attribute__((noreturn));
void __wrap_abort(void) __attribute__((noreturn));
void __wrap__exit(int status) __attribute__((noreturn));

struct Counters {
    void (*dump)(void);
    struct Counters* next;
};

/* One list for the whole process, in the program, so that no library exports it. */
#ifdef BRIM_COVERAGE_PROGRAM
__attribute__((visibility("default"))) struct Counters* g_brimCoverageCounters;
#else
extern __attribute__((weak)) struct Counters* g_brimCoverageCounters;
#endif

static struct Counters s_counters = {__gcov_dump, 0};

/* Null in programs that are not part of the coverage build. */
static struct Counters** list(void) { return &g_brimCoverageCounters; }

__attribute__((constructor)) static void enlist(void) {
    if (list() != 0) {
        s_counters.next = *list();
        *list() = &s_counters;
    }
}

__attribute__((destructor)) static void strikeOff(void) {
    struct Counters** place = list();
    while (place != 0 && *place != 0 && *place != &s_counters) {
        place = &(*place)->next;
    }
    if (place != 0 && *place != 0) {
        *place = s_counters.next;
    }
}

static void dumpAll(void) {
    if (list() == 0) {
        s_counters.dump();
        return;
    }
    for (struct Counters* counters = *list(); counters != 0; counters = counters->next) {
        counters->dump();
    }
}

void __wrap_abort(void) {
    dumpAll();
    __real_abort();
}

void __wrap__exit(int status) {
    dumpAll();
    __real__exit(status);
}
