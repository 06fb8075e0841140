#include "pose/mmfile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/support/package_path.h"

namespace {

/// Gives a new file its size and all its room: a page for which there is none when it is written ends the process.
bool takeRoom(int fd, int size) {
  if (fd < 0 || ftruncate(fd, size) < 0) return false;
  const int problem = size > 0 ? posix_fallocate(fd, 0, size) : 0;
  errno = problem;
  return problem == 0;
}

/// A new file, -1 for none; `name` becomes its name. Where the folder in memory has no room for it, it lies in /tmp.
int create(std::string& name, const std::string& nameTemplate, int size) {
  name = temporaryPath(nameTemplate);
  if (name != nameTemplate) {
    const int fd = mkstemp(name.data());
    if (takeRoom(fd, size)) return fd;
    if (fd >= 0) {
      unlink(name.c_str());
      close(fd);
    }
    name = nameTemplate;
  }
  return mkstemp(name.data());
}

}  // namespace

MemoryMappedFile::MemoryMappedFile(const std::string& nameTemplate, int size)
    : m_filesize(size), m_fileDescriptor(create(m_filename, nameTemplate, size)), m_buffer(MAP_FAILED) {
  if (m_fileDescriptor < 0) {
    syslog(LOG_ERR, "MemoryMappedFile::MemoryMappedFile failed to create temporary file %s : %s", m_filename.c_str(),
           std::strerror(errno));
    throw "Failed to create temporary file";
  }
  if (!takeRoom(m_fileDescriptor, m_filesize)) {
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
