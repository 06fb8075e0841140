// The part of a network that somebody asks for: an engine runs every layer of its file.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

struct AskedPart {
  std::string onnx;                ///< the file without the rest; empty when there is nothing to leave out
  std::set<std::string> left_out;  ///< tensors that the rest would have made
};

/// What none of the outputs needs is left out, layers and constants. A file that is not understood, or lacks one of the
/// outputs, stays whole: whoever runs it says what is wrong with it.
AskedPart askedPart(std::span<const std::uint8_t> file, const std::vector<std::string>& outputs);

/// A task on that part alone, which it keeps.
class AskedTask {
 public:
  /// A `file` in which the whole network lies is given up: networks are large.
  explicit AskedTask(const NetworkTask& whole, std::string file = {});
  AskedTask(const AskedTask&) = delete;
  AskedTask& operator=(const AskedTask&) = delete;
  const NetworkTask& task() const { return m_task; }

 private:
  AskedPart m_part;
  NetworkTask m_task;
};

}  // namespace workstation
