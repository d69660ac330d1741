#include <cstdio>

#include "tqvhost/host.h"

int main() {
    std::fprintf(stderr, "tqvhost: not implemented yet\n");
    return 1;
}
