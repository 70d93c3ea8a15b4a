// The same program as C++17.
#include "consumer.c"
