// What each receiver has got already, on disk: receivers.json. It is replaced as a whole on a thread of its own, so
// that no call waits for it; what a kill loses of it is sent once more.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/workstation/system/side_thread.h"

namespace workstation {

/// A receiver's place in the numbers.
struct Cursor {
  std::uint64_t begins = 0;  ///< it is for it from here on
  std::uint64_t done = 0;    ///< the last one that it has taken; 0 for none
};

/// By the receivers' names. From any thread.
class Cursors {
 public:
  using All = std::map<std::string, Cursor>;

  Cursors();

  /// Reads the file, on the calling thread; the highest number in it. What cannot be read is as if it were not there,
  /// but then lost() is true.
  std::uint64_t load();
  /// None for a receiver that is new.
  [[nodiscard]] std::optional<Cursor> of(const std::string& name) const;
  /// There was a file that could not be used: who has got what is not known.
  [[nodiscard]] bool isLost() const;
  /// Replaces the file, as soon as the disk lets it.
  void store(const All& all);
  /// False when that has not happened after this time.
  bool drain(std::chrono::milliseconds patience);

 private:
  struct Core;
  std::shared_ptr<Core> m_core;
  SideThread m_side;
};

}  // namespace workstation
