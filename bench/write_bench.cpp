// The write paths against libtiff's plain API (see bench_common.h for the conventions).
#include "bench_common.h"
