#include "platform/workstation/stream_choice.h"

#include <cstdlib>
#include <mutex>

namespace workstation {
namespace {

std::string valueOf(const Parameters& stored, std::string_view name) {
  const auto found = stored.find(name);
  return found == stored.end() ? "" : found->second;
}

/// As lenient as anybody who reads such a text: rather a stream too many is anonymised than one too few.
std::optional<StreamSize> chosenSize(const Parameters& stored, std::string_view on, std::string_view selected) {
  const std::string size = valueOf(stored, selected);
  const std::size_t cross = size.find('x');
  if (valueOf(stored, on) != "true" || cross == std::string::npos) return std::nullopt;
  const auto side = [](const std::string& text) {
    return static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
  };
  return StreamSize{side(size), side(size.substr(cross + 1))};
}

struct Current {
  std::mutex mutex;
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

void noteStoredParameters(const Parameters& stored) {
  StreamChoice choice = readStreamChoice(stored);
  const std::scoped_lock lock(current().mutex);
  StreamChoice& before = current().choice;
  choice.version =
      before.version + (choice.overlay == before.overlay && choice.anonymised == before.anonymised ? 0 : 1);
  before = choice;
}

StreamChoice currentStreamChoice() {
  const std::scoped_lock lock(current().mutex);
  return current().choice;
}

}  // namespace workstation
