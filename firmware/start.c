/* The start of a program on an emulated board, up to newlib's own start. The emulator supplies files,
 * arguments and output to newlib by semihosting. */
#include <stddef.h>
#include <stdint.h>

#define REGISTER(address) (*(volatile uint32_t *)(address))

extern char end[], board_end[]; /* the ends of the program and of its memory; from the linker script */
void _start(void);              /* from newlib */

static void reset(void) {
#if !__ARM_FEATURE_UNALIGNED
    REGISTER(0xE000ED14) |= 1U << 3; /* trap unaligned access, as Cortex-M0 does */
#endif
#if __ARM_FP
    REGISTER(0xE000ED88) |= 0xFU << 20; /* switch on the floating-point and vector unit, off at reset */
#endif
    _start();
}

/* The emulator reports the breakpoint and ends. */
static void fault(void) {
    for (;;) __asm__ volatile("bkpt 0");
}

__attribute__((section(".vectors"), used)) static const struct {
    void *stack;
    void (*entries[15])(void);
} vectors = {board_end, {reset, fault, fault, fault, fault, fault}};

/* The heap: from the end of the program to the end of its memory. newlib puts the stack where the emulator
 * says, outside of it. */
void *_sbrk(ptrdiff_t more);
void *_sbrk(ptrdiff_t more) {
    static char *top = end;
    char *const begin = top;
    if (board_end - top < more) return (void *)-1;
    top += more;
    return begin;
}

/* GoogleTest refers to these functions, but the tests never call them. */
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
/* GoogleTest counts references with it, and Cortex-M0 has no instruction for it. There are no interrupts. */
unsigned fetch_sub(volatile void *at, unsigned value, int order) __asm__("__atomic_fetch_sub_4");
unsigned fetch_sub(volatile void *at, unsigned value, int order) {
    volatile unsigned *count = at;
    const unsigned before = *count;
    (void)order;
    *count = before - value;
    return before;
}
#endif
