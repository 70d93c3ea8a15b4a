/* What stands before main on an emulated board. The rest of the start is newlib's, which takes files,
 * arguments and output from the emulator by semihosting. */
#include <stddef.h>
#include <stdint.h>

#define REGISTER(address) (*(volatile uint32_t *)(address))

extern char end[], board_end[]; /* of the program, and of its memory: the linker script's */
void _start(void);              /* newlib's */

static void reset(void) {
#if !__ARM_FEATURE_UNALIGNED
    REGISTER(0xE000ED14) |= 1U << 3; /* trap what traps on the core that the code is for */
#endif
#if __ARM_FP
    REGISTER(0xE000ED88) |= 0xFU << 20; /* the registers of floating point and vectors, off at reset */
#endif
    _start();
}

/* The emulator reports it and ends. */
static void fault(void) {
    for (;;) __asm__ volatile("bkpt 0");
}

__attribute__((section(".vectors"), used)) static const struct {
    void *stack;
    void (*entries[15])(void);
} vectors = {board_end, {reset, fault, fault, fault, fault, fault}};

/* The heap: what the program leaves of its memory. The stack is where the emulator wants it, elsewhere. */
void *_sbrk(ptrdiff_t more);
void *_sbrk(ptrdiff_t more) {
    static char *top = end;
    char *const begin = top;
    if (board_end - top < more) return (void *)-1;
    top += more;
    return begin;
}

/* GoogleTest names these; the tests call none. */
int mkdir(const char *path, unsigned mode);
char *getcwd(char *path, unsigned size);
int mkdir(const char *path, unsigned mode) {
    (void)path, (void)mode;
    return -1;
}
char *getcwd(char *path, unsigned size) {
    (void)path, (void)size;
    return 0;
}

#if __ARM_ARCH == 6
/* It counts references by it, and Cortex-M0 has no instruction for that. Nothing interrupts here. */
unsigned fetch_sub(volatile void *at, unsigned value, int order) __asm__("__atomic_fetch_sub_4");
unsigned fetch_sub(volatile void *at, unsigned value, int order) {
    volatile unsigned *count = at;
    const unsigned before = *count;
    (void)order;
    *count = before - value;
    return before;
}
#endif
