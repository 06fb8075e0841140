// A disk that fails for files in a test's state folder: linked, it stands before the C library's calls.
#pragma once

#include <atomic>

enum class Fault {
  kNone,
  kFull,          ///< the tests' own: by a limit on the size of files
  kSyncFails,     ///< of files
  kHangs,         ///< nothing can be written, and none of the page's files be read
  kJournalHangs,  ///< nothing can be written to events.jsonl
  kAlarmsHang,    ///< nothing can be written to alarms.jsonl
  kFolderFails,   ///< syncing a folder fails
  kNoRoom,        ///< all but a byte can be written to traces
};

extern std::atomic<Fault> disk_fault;
