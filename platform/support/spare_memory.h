// Memory of pictures that are gone, for the next ones: each cycle needs the same megabytes again, and a system that
// takes them back has to clear them every time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

/// From this size on, memory that is given back is kept for the next who asks for about as much: sizes are rounded up
/// to powers of two. Of all that is kept, kMostSpare bytes at most, the newest. From any thread.
inline constexpr std::size_t kLargeMemory = std::size_t{1} << 20;
inline constexpr std::size_t kMostSpare = std::size_t{8} << 20;

/// What is in it is anything. Throws std::bad_alloc.
void* takeMemory(std::size_t bytes);

/// `bytes` are those that it was taken with.
void giveMemory(void* memory, std::size_t bytes) noexcept;

/// A picture's bytes in such memory.
class PictureBytes {
 public:
  PictureBytes() = default;
  /// What is in it is anything.
  explicit PictureBytes(std::size_t size)
      : m_bytes(size == 0 ? nullptr : static_cast<std::uint8_t*>(takeMemory(size))), m_size(size) {}
  PictureBytes(std::size_t size, std::uint8_t value) : PictureBytes(size) { std::fill(begin(), end(), value); }
  PictureBytes(const PictureBytes& other) : PictureBytes(other.m_size) {
    std::copy(other.begin(), other.end(), begin());
  }
  PictureBytes(PictureBytes&& other) noexcept { swap(other); }
  PictureBytes& operator=(PictureBytes other) noexcept {
    swap(other);
    return *this;
  }
  ~PictureBytes() {
    if (m_bytes != nullptr) giveMemory(m_bytes, m_size);
  }

  [[nodiscard]] std::uint8_t* data() { return m_bytes; }
  [[nodiscard]] const std::uint8_t* data() const { return m_bytes; }
  [[nodiscard]] std::size_t size() const { return m_size; }
  std::uint8_t* begin() { return m_bytes; }
  std::uint8_t* end() { return m_bytes + m_size; }
  [[nodiscard]] const std::uint8_t* begin() const { return m_bytes; }
  [[nodiscard]] const std::uint8_t* end() const { return m_bytes + m_size; }
  std::uint8_t& operator[](std::size_t at) { return m_bytes[at]; }
  const std::uint8_t& operator[](std::size_t at) const { return m_bytes[at]; }
  friend bool operator==(const PictureBytes& one, const PictureBytes& other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end());
  }

 private:
  void swap(PictureBytes& other) noexcept {
    std::swap(m_bytes, other.m_bytes);
    std::swap(m_size, other.m_size);
  }

  std::uint8_t* m_bytes = nullptr;
  std::size_t m_size = 0;
};
