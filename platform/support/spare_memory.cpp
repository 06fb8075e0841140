#include "platform/support/spare_memory.h"

#include <bit>
#include <deque>
#include <mutex>
#include <new>

// What lies here, or behind a picture, is nobody's to read or write.
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(begin, bytes) static_cast<void>(begin)
#define ASAN_UNPOISON_MEMORY_REGION(begin, bytes) static_cast<void>(begin)
#endif

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

bool isKept(std::size_t bytes) { return bytes >= kLargeMemory && bytes <= kMostSpare; }

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
    return memory;
  }
  return nullptr;
}

/// The oldest first, until there are no more bytes than that; with the lock held.
void dropDownTo(std::size_t bytes) noexcept {
  for (; spare().bytes > bytes; spare().blocks.pop_front()) {
    const Block oldest = spare().blocks.front();
    spare().bytes -= oldest.bytes;
    ASAN_UNPOISON_MEMORY_REGION(oldest.memory, oldest.bytes);
    ::operator delete(oldest.memory);
  }
}

void* takeNew(std::size_t bytes) {
  try {
    return ::operator new(bytes);
  } catch (const std::bad_alloc&) {
    const std::scoped_lock lock(spare().mutex);
    dropDownTo(0);
  }
  return ::operator new(bytes);
}

}  // namespace

void* takeMemory(std::size_t bytes) {
  if (!isKept(bytes)) return takeNew(bytes);
  const std::size_t whole = rounded(bytes);
  void* memory = takeSpare(whole);
  if (memory == nullptr) memory = takeNew(whole);
  ASAN_UNPOISON_MEMORY_REGION(memory, bytes);
  ASAN_POISON_MEMORY_REGION(static_cast<char*>(memory) + bytes, whole - bytes);
  return memory;
}

void giveMemory(void* memory, std::size_t bytes) noexcept {
  if (!isKept(bytes)) return ::operator delete(memory);
  const std::size_t whole = rounded(bytes);
  const std::scoped_lock lock(spare().mutex);
  try {
    spare().blocks.push_back({memory, whole});
  } catch (const std::bad_alloc&) {
    ASAN_UNPOISON_MEMORY_REGION(memory, whole);
    return ::operator delete(memory);
  }
  ASAN_POISON_MEMORY_REGION(memory, whole);
  spare().bytes += whole;
  dropDownTo(kMostSpare);
}
