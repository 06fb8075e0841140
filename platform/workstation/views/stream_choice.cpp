#include "platform/workstation/views/stream_choice.h"

#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>

namespace workstation {
namespace {

std::string valueOf(const Parameters& stored, std::string_view name) {
  const auto found = stored.find(name);
  return found == stored.end() ? "" : found->second;
}

/// As lenient as the program, which takes the number that a text begins with.
std::optional<StreamSize> chosenSize(const Parameters& stored, std::string_view on, std::string_view selected) {
  const std::string size = valueOf(stored, selected);
  const std::size_t cross = size.find('x');
  if (valueOf(stored, on) != "true" || cross == std::string::npos) return std::nullopt;
  const auto side = [](const std::string& text) {
    const long long pixels = std::strtoll(text.c_str(), nullptr, 10);
    return pixels < 0 || pixels > std::numeric_limits<int>::max() ? 0 : static_cast<std::uint32_t>(pixels);
  };
  return StreamSize{side(size), side(size.substr(cross + 1))};
}

struct Current {
  std::mutex mutex;
  std::shared_ptr<const Parameters> parameters;  ///< that the choice was read from
  StreamChoice choice;
};

Current& current() {
  static auto& the_current = *new Current;  // never destroyed: threads may ask until the process ends
  return the_current;
}

}  // namespace

StreamChoice readStreamChoice(const Parameters& stored) {
  return {chosenSize(stored, "DetectionOverlaysOn", "SelectedDetectionOverlay"),
          chosenSize(stored, "AnonOverlaysOn", "SelectedAnonOverlay")};
}

StreamChoice currentStreamChoice() {
  const std::scoped_lock lock(current().mutex);
  auto parameters = currentParameters();
  if (parameters != std::exchange(current().parameters, parameters)) {
    StreamChoice choice = readStreamChoice(*parameters);
    StreamChoice& before = current().choice;
    const bool is_same = choice.overlay == before.overlay && choice.anonymised == before.anonymised;
    choice.version = before.version + (is_same ? 0 : 1);
    before = choice;
  }
  return current().choice;
}

}  // namespace workstation
