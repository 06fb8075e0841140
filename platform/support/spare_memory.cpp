#include "platform/support/spare_memory.h"

#include <sanitizer/asan_interface.h>

#include <bit>
#include <deque>
#include <mutex>
#include <utility>

namespace {

struct Block {
  void* memory;
  std::size_t bytes;
};

struct Spare {
  std::mutex mutex;
  std::deque<Block> blocks;  ///< the oldest first
  std::size_t bytes = 0;
};

Spare& spare() {
  static auto& the_spare = *new Spare;  // never destroyed: pictures may be given back after main
  return the_spare;
}

/// Few sizes, so that one fits another; of what lies behind a picture the system gives nothing.
std::size_t rounded(std::size_t bytes) { return std::bit_ceil(bytes); }

/// The newest block of that size, which is likeliest to be in a cache; null when there is none.
void* takeSpare(std::size_t bytes) {
  const std::scoped_lock lock(spare().mutex);
  auto& blocks = spare().blocks;
  for (auto block = blocks.rbegin(); block != blocks.rend(); ++block) {
    if (block->bytes != bytes) continue;
    void* const memory = block->memory;
    blocks.erase(std::next(block).base());
    spare().bytes -= bytes;
    ASAN_UNPOISON_MEMORY_REGION(memory, bytes);
    return memory;
  }
  return nullptr;
}

}  // namespace

void* takeMemory(std::size_t bytes) {
  if (bytes < kLargeMemory) return ::operator new(bytes);
  void* const known = takeSpare(rounded(bytes));
  return known != nullptr ? known : ::operator new(rounded(bytes));
}

void giveMemory(void* memory, std::size_t taken) noexcept {
  const std::size_t bytes = taken < kLargeMemory ? taken : rounded(taken);
  if (bytes < kLargeMemory || bytes > kMostSpare) return ::operator delete(memory);
  const std::scoped_lock lock(spare().mutex);
  auto& blocks = spare().blocks;
  try {
    blocks.push_back({memory, bytes});
  } catch (const std::bad_alloc&) {
    return ::operator delete(memory);
  }
  ASAN_POISON_MEMORY_REGION(memory, bytes);
  for (spare().bytes += bytes; spare().bytes > kMostSpare; blocks.pop_front()) {
    const Block oldest = blocks.front();
    spare().bytes -= oldest.bytes;
    ASAN_UNPOISON_MEMORY_REGION(oldest.memory, oldest.bytes);
    ::operator delete(oldest.memory);
  }
}
