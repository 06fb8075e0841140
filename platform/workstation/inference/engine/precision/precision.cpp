#include "platform/workstation/inference/engine/precision/precision.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace workstation {
namespace {

constexpr std::array kNames{std::pair{Precision::kFloats, "fp32"}, std::pair{Precision::kShortFloats, "bf16"},
                            std::pair{Precision::kBytes, "int8"}};

}  // namespace

std::optional<Precision> precisionFrom(std::string_view word) {
  const auto* found = std::find_if(kNames.begin(), kNames.end(), [&](const auto& name) { return word == name.second; });
  return found == kNames.end() ? std::nullopt : std::optional(found->first);
}

const char* nameOf(Precision precision) {
  return std::find_if(kNames.begin(), kNames.end(), [&](const auto& name) { return precision == name.first; })->second;
}

Precision precisionOfRuns() {
  const char* word = std::getenv("VELMOR_PRECISION");
  return precisionFrom(word == nullptr ? "" : word).value_or(Precision::kFloats);
}

}  // namespace workstation
