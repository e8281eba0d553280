// Counts heap allocations made by the calling thread while counting is on.
#pragma once

#include <cstdint>

namespace krv_bench {

// Starts counting on this thread from zero; stopCounting returns the count.
void startCounting();
std::uint64_t stopCounting();

}  // namespace krv_bench
