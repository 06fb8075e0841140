#include "pose/mmfile.h"

#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/support/package_path.h"

MemoryMappedFile::MemoryMappedFile(const std::string& nameTemplate, int size)
    : m_filename(temporaryPath(nameTemplate)),
      m_filesize(size),
      m_fileDescriptor(mkstemp(m_filename.data())),
      m_buffer(MAP_FAILED) {
  if (m_fileDescriptor < 0) {
    syslog(LOG_ERR, "MemoryMappedFile::MemoryMappedFile failed to create temporary file %s : %s", m_filename.c_str(),
           std::strerror(errno));
    throw "Failed to create temporary file";
  }
  if (ftruncate(m_fileDescriptor, m_filesize) < 0) {
    syslog(LOG_ERR, "MemoryMappedFile::MemoryMappedFile failed to adjust temporary file %s to size %d: %s",
           m_filename.c_str(), m_filesize, std::strerror(errno));
    unlink(m_filename.c_str());
    close(m_fileDescriptor);
    throw "Failed to adjust file size";
  }
  if (unlink(m_filename.c_str()) != 0) {
    syslog(LOG_ERR, "MemoryMappedFile::MemoryMappedFile failed to unlink temporary file %s : %s", m_filename.c_str(),
           std::strerror(errno));
  }
  m_buffer =
      mmap(nullptr, static_cast<std::size_t>(m_filesize), PROT_READ | PROT_WRITE, MAP_SHARED, m_fileDescriptor, 0);
  if (m_buffer == MAP_FAILED) {
    syslog(LOG_ERR, "MemoryMappedFile::MemoryMappedFile failed to create map file %s : %s", m_filename.c_str(),
           std::strerror(errno));
    close(m_fileDescriptor);
    throw "Failed to create map file";
  }
}

MemoryMappedFile::~MemoryMappedFile() {
  if (munmap(m_buffer, static_cast<std::size_t>(m_filesize)) != 0) {
    syslog(LOG_ERR, "MemoryMappedFile::~MemoryMappedFile failed to unmap mapped file %s: %s", m_filename.c_str(),
           std::strerror(errno));
  }
  close(m_fileDescriptor);
}

bool MemoryMappedFile::rewind() const {
  if (lseek(m_fileDescriptor, 0, SEEK_SET) < 0) {
    syslog(LOG_ERR, "MemoryMappedFile::~Rewind failed to rewind mapped file %s: %s", m_filename.c_str(),
           std::strerror(errno));
    return false;
  }
  return true;
}
