#include "agent/meta/AllocationMeter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> held{0};
std::atomic<std::size_t> peak{0};

void Raise(std::size_t now) {
    std::size_t seen = peak.load();
    while (seen < now && !peak.compare_exchange_weak(seen, now)) {
    }
}

}  // namespace

// Replaced for the whole program: the measuring sees every allocation, whichever library makes it.
void* operator new(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t usable = malloc_usable_size(memory);
    Raise(held.fetch_add(usable) + usable);
    return memory;
}

void operator delete(void* memory) noexcept {
    held.fetch_sub(malloc_usable_size(memory));
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace agent::test_kit {

AllocationMeter::AllocationMeter() : begin_(held.load()) { peak.store(begin_); }

std::size_t AllocationMeter::GetHeld() const {
    const std::size_t now = held.load();
    return now > begin_ ? now - begin_ : 0;
}

std::size_t AllocationMeter::GetPeak() const { return peak.load() - begin_; }

}  // namespace agent::test_kit
