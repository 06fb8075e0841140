#include "platform/workstation/inference/eyes.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace workstation {
namespace {

constexpr std::array kNames{std::pair{Eyes::kFast, "fast"}, std::pair{Eyes::kSharp, "sharp"}};

}  // namespace

std::optional<Eyes> eyesFrom(std::string_view word) {
  const auto* found = std::find_if(kNames.begin(), kNames.end(), [&](const auto& name) { return word == name.second; });
  return found == kNames.end() ? std::nullopt : std::optional(found->first);
}

const char* nameOf(Eyes eyes) {
  return std::find_if(kNames.begin(), kNames.end(), [&](const auto& name) { return eyes == name.first; })->second;
}

Eyes eyesOfRuns() {
  const char* word = std::getenv("VELMOR_EYES");
  return eyesFrom(word == nullptr ? "" : word).value_or(Eyes::kFast);
}

bool chooseLooks(AdapterSettings& settings, Eyes eyes) {
  auto looks = settings.looks.find(nameOf(eyes));
  const bool is_there = looks != settings.looks.end() || eyes == Eyes::kFast;
  if (!is_there) looks = settings.looks.find(nameOf(Eyes::kFast));
  if (looks == settings.looks.end()) return is_there;
  std::vector<AdapterScale> chosen;
  for (const size_t look : looks->second) chosen.push_back(settings.scales.at(look));
  settings.scales = std::move(chosen);
  return is_there;
}

}  // namespace workstation
