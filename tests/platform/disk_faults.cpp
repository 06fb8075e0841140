#include "tests/platform/disk_faults.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

std::atomic<Fault> disk_fault{Fault::kNone};

namespace {

bool isIn(int fd, const char* part) {
  std::array<char, 256> path{};
  return ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size() - 1) > 0 &&
         std::string(path.data()).find(part) != std::string::npos;
}

void answerAsTheDisk(int fd) {
  while ((disk_fault == Fault::kHangs && isIn(fd, "/velmor-test-")) ||
         (disk_fault == Fault::kJournalHangs && isIn(fd, "/events.jsonl")) ||
         (disk_fault == Fault::kAlarmsHang && isIn(fd, "/alarms.jsonl"))) {
    ::usleep(1000);
  }
}

int sync(long call, int fd, Fault failing) {
  answerAsTheDisk(fd);
  if (disk_fault != failing) return static_cast<int>(::syscall(call, fd));
  errno = EIO;
  return -1;
}

}  // namespace

// In the place of the C library's, with its names.
extern "C" ssize_t write(int __fd, const void* __buf, size_t __n) {
  answerAsTheDisk(__fd);
  if (disk_fault != Fault::kNoRoom || !isIn(__fd, "/trace")) return ::syscall(SYS_write, __fd, __buf, __n);
  if (__n > 1) return ::syscall(SYS_write, __fd, __buf, __n - 1);
  errno = ENOSPC;
  return -1;
}
extern "C" ssize_t read(int __fd, void* __buf, size_t __nbytes) {
  while (disk_fault == Fault::kHangs && isIn(__fd, "/html/")) ::usleep(1000);
  return ::syscall(SYS_read, __fd, __buf, __nbytes);
}
extern "C" ssize_t pwrite(int __fd, const void* __buf, size_t __n, off_t __offset) {
  answerAsTheDisk(__fd);
  return ::syscall(SYS_pwrite64, __fd, __buf, __n, __offset);
}
extern "C" int fdatasync(int __fildes) { return sync(SYS_fdatasync, __fildes, Fault::kSyncFails); }
extern "C" int fsync(int __fd) { return sync(SYS_fsync, __fd, Fault::kFolderFails); }
