#include "platform/workstation/views/stream_choice.h"

#include <mutex>
#include <string>
#include <string_view>

namespace workstation {
namespace {

std::string valueOf(const Parameters& stored, std::string_view name) {
  const auto found = stored.find(name);
  return found == stored.end() ? "" : found->second;
}

std::optional<StreamSize> chosenSize(const Parameters& stored, std::string_view on, std::string_view selected) {
  const std::string size = valueOf(stored, selected);
  if (valueOf(stored, on) != "true" || size.find('x') == std::string::npos) return std::nullopt;
  return streamSizeFrom(size);
}

struct Current {
  std::mutex mutex;
  StreamChoice choice;
};

Current& current() {
  static auto& the_current = *new Current;  // never destroyed: threads may ask until the process ends
  return the_current;
}

/// A choice that was another in between is a new one.
void note(const Parameters& stored) {
  StreamChoice choice = readStreamChoice(stored);
  const std::scoped_lock lock(current().mutex);
  StreamChoice& before = current().choice;
  const bool is_same = choice.overlay == before.overlay && choice.anonymised == before.anonymised;
  choice.version = before.version + (is_same ? 0 : 1);
  before = choice;
}

[[maybe_unused]] const bool is_told = (setParametersHook(note), true);

}  // namespace

StreamChoice readStreamChoice(const Parameters& stored) {
  return {chosenSize(stored, "DetectionOverlaysOn", "SelectedDetectionOverlay"),
          chosenSize(stored, "AnonOverlaysOn", "SelectedAnonOverlay")};
}

StreamChoice currentStreamChoice() {
  const std::scoped_lock lock(current().mutex);
  return current().choice;
}

}  // namespace workstation
