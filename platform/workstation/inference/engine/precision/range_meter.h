// What a network's tensors hold while it runs: what their bytes will have to reach.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/precision.h"

namespace workstation {

/// While one lives, the networks that are loaded run in 32-bit floats, and their tensors' values are noted in it.
class RangeMeter {
 public:
  RangeMeter();
  ~RangeMeter();
  RangeMeter(const RangeMeter&) = delete;
  RangeMeter& operator=(const RangeMeter&) = delete;

  /// The one that lives, or none.
  static RangeMeter* current();

  /// An engine whose runs are noted. Throws Unsupported when oneDNN does not know the network.
  std::unique_ptr<Engine> engineFor(const NetworkTask& task);

  /// Of all runs, with zero in them: the extremes, since rare values are what people look like, and a quarter more
  /// where no layer limits them, since real rooms show more than rendered ones.
  [[nodiscard]] TensorRanges ranges() const;

  void note(const std::string& tensor, std::span<const float> values);

 private:
  /// A network, and what is asked of it.
  struct Measured {
    Plan plan;
    std::vector<std::string> outputs;
  };

  std::map<std::string, Range> m_ranges;
  std::map<std::string, float> m_limits;  ///< largest values that there can be
  std::list<Measured> m_networks;         ///< a plan's steps point into it
};

}  // namespace workstation
