// In which numbers a network is run.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace workstation {

enum class Precision {
  kFloats,       ///< of 32 bits
  kShortFloats,  ///< of 16 bits: bfloat16
  kBytes,        ///< whose ranges were measured
};

/// "fp32", "bf16" or "int8".
std::optional<Precision> precisionFrom(std::string_view word);
const char* nameOf(Precision precision);

/// As the environment's VELMOR_PRECISION says; else 32-bit floats, which lose nobody.
Precision precisionOfRuns();

/// The smallest and the largest value that a tensor is to hold; zero lies between them.
struct Range {
  float low = 0;
  float high = 0;
};

/// By tensor; nothing for one that stays floats.
using TensorRanges = std::map<std::string, std::optional<Range>>;

}  // namespace workstation
