// Temporary files through which tensors are exchanged with the inference service.
#pragma once

#include <cstdint>
#include <string>

/// A file without a name, mapped shared for reading and writing. The service writes it through the descriptor and may
/// make it longer than the mapping.
class MemoryMappedFile {
 public:
  /// Creates the file from a name that ends in XXXXXX, with `size` bytes of 0. On failure it logs the reason and throws
  /// a const char*.
  MemoryMappedFile(const std::string& nameTemplate, int size);
  ~MemoryMappedFile();
  MemoryMappedFile(const MemoryMappedFile&) = delete;
  MemoryMappedFile& operator=(const MemoryMappedFile&) = delete;

  /// The mapping, page-aligned; valid as long as this object.
  uint8_t* getBuffer() const { return static_cast<uint8_t*>(m_buffer); }
  /// Stays open as long as this object.
  int getFileDescriptor() const { return m_fileDescriptor; }
  /// Moves the descriptor's position to the start, where the service writes next. False after a log line.
  bool rewind() const;

 private:
  std::string m_filename;
  int m_filesize;
  int m_fileDescriptor;
  void* m_buffer;
};
