#include "map_server/util/large_buffer.h"

#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace vmp {

namespace {
constexpr size_t kHugePage = size_t{2} << 20;
// Below this a huge page would mostly hold nothing.
constexpr size_t kHugeThreshold = size_t{4} << 20;
}  // namespace

void* AllocateLargeBytes(size_t bytes) {
  if (bytes == 0) bytes = 1;
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (bytes >= kHugeThreshold && bytes <= static_cast<size_t>(-1) - kHugePage) {
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    if (void* p = std::aligned_alloc(kHugePage, rounded)) {
      madvise(p, rounded, MADV_HUGEPAGE);  // a hint; refusal changes nothing
      return p;
    }
    throw std::bad_alloc();
  }
#endif
  if (void* p = std::malloc(bytes)) return p;
  throw std::bad_alloc();
}

}  // namespace vmp
