// Memory of pictures that are gone, for the next ones: each cycle needs the same megabytes again, and a system that
// takes them back has to clear them every time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <vector>

/// From this size on, memory that is given back is kept for the next who asks for about as much: sizes are rounded up
/// to powers of two. Of all that is kept, kMostSpare bytes at most, the newest. From any thread.
inline constexpr std::size_t kLargeMemory = std::size_t{1} << 20;
inline constexpr std::size_t kMostSpare = std::size_t{8} << 20;

/// What is in it is anything. Throws std::bad_alloc.
void* takeMemory(std::size_t bytes);

/// `bytes` are those that it was taken with.
void giveMemory(void* memory, std::size_t bytes) noexcept;

/// Takes and gives such memory. Elements without a given value are left as they are, not cleared.
template <typename T>
struct SpareAllocator {
  static_assert(std::is_trivial_v<T>);
  using value_type = T;
  SpareAllocator() = default;
  template <typename U>
  SpareAllocator(const SpareAllocator<U>& /*other*/) noexcept {}  // NOLINT(google-explicit-constructor): as all are

  T* allocate(std::size_t count) { return static_cast<T*>(takeMemory(count * sizeof(T))); }
  void deallocate(T* memory, std::size_t count) noexcept { giveMemory(memory, count * sizeof(T)); }
  void construct(T* /*place*/) noexcept {}
  template <typename... Arguments>
  void construct(T* place, Arguments&&... arguments) {
    ::new (static_cast<void*>(place)) T(std::forward<Arguments>(arguments)...);
  }
  friend bool operator==(const SpareAllocator& /*one*/, const SpareAllocator& /*other*/) { return true; }
};

/// A picture's bytes. PictureBytes(count) holds anything, PictureBytes(count, 0) zeros.
using PictureBytes = std::vector<std::uint8_t, SpareAllocator<std::uint8_t>>;
