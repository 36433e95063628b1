#include <malloc.h>

#include "agent/cli/App.h"

int main(int argc, char** argv) {
    // Else the allocator keeps the largest pieces that were ever freed: a million files took 33 MiB more.
    constexpr int largeAllocation = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, largeAllocation);
    return agent::RunApp(argc, argv);
}
