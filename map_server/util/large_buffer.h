// Arrays of several megabytes (decoded image tiles, the map image) come
// from transparent huge pages where the system offers them: a fresh buffer
// then costs one page fault per 2 MB instead of one per 4 KB, which is a
// noticeable part of a request's time. Smaller arrays are plain
// allocations. Only for element types without constructors.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace vmp {

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};

template <typename T>
using LargeArray = std::unique_ptr<T[], FreeDeleter>;

// `bytes` of uninitialised memory; throws std::bad_alloc when there is none.
void* AllocateLargeBytes(size_t bytes);

template <typename T>
LargeArray<T> AllocateLarge(size_t count) {
  static_assert(std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
  if (count > static_cast<size_t>(-1) / sizeof(T)) throw std::bad_alloc();
  return LargeArray<T>(static_cast<T*>(AllocateLargeBytes(count * sizeof(T))));
}

}  // namespace vmp
