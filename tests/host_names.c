/* What a host program may well have: names of the library's that mean something else. */
#include <stdlib.h>

extern int x, x2, MPTH;
extern double invk;
extern char bdf[2];
void PLC_Ola(void);
void plc_mem_copy(void);

int x = 7, x2 = 49, MPTH = -1;
double invk = 0.5;
char bdf[2] = "b";

void PLC_Ola(void) { abort(); }
void plc_mem_copy(void) { abort(); }
