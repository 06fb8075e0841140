// What the networks' tensors hold while the program watches recordings: the file models/ranges.json.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "accuracy/commands.h"
#include "accuracy/program.h"
#include "platform/workstation/inference/engine/precision/range_meter.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using workstation::Range;
using workstation::TensorRanges;

/// The networks look at a picture once or several times with the same weights; a look's layers begin with "byN/".
std::string withoutLook(const std::string& tensor) {
  const auto slash = tensor.find('/');
  const bool is_look = slash != std::string::npos && slash > 2 && tensor.starts_with("by") &&
                       std::all_of(tensor.begin() + 2, tensor.begin() + static_cast<std::ptrdiff_t>(slash),
                                   [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
  return is_look ? tensor.substr(slash + 1) : tensor;
}

/// All that either reaches; what stays floats in one does in both.
void widen(const std::string& tensor, const std::optional<Range>& range, TensorRanges& ranges) {
  const auto [place, is_new] = ranges.emplace(tensor, range);
  if (is_new || !place->second) return;
  if (!range) {
    place->second.reset();
    return;
  }
  place->second = Range{std::min(place->second->low, range->low), std::max(place->second->high, range->high)};
}

/// In a process of its own.
json watch(const fs::path& recording) {
  const workstation::RangeMeter meter;
  workstation::LaunchRequest launch;
  launch.source = recording.string();
  const fs::path settings = fs::path(recording).replace_extension(".settings.json");
  if (fs::exists(settings)) launch.settings = settings;
  const workstation::LaunchPlan plan = takeOver(launch, sourceTree());
  startProgram();
  runCycles([] { return true; });
  json ranges = json::object();
  for (const auto& [tensor, range] : meter.ranges()) {
    ranges[tensor] = range ? json{range->low, range->high} : json();
  }
  return ranges;
}

/// The hashes of what the networks were made from, save those of our own files, which only say how.
json madeFrom() {
  const fs::path sidecar = sourceTree() / "models" / "pose_landscape.onnx.json";
  std::ifstream stream(sidecar);
  json made = json::parse(stream, nullptr, false);
  made = made.is_object() ? made.value("made_from", json()) : json();
  if (!made.is_object()) throw std::runtime_error(sidecar.string() + ": is of a network that was not made by ./run");
  made.erase("convert.py");
  made.erase("ranges.json");
  return made;
}

std::string lineOf(const std::string& tensor, const std::optional<Range>& range) {
  std::string line = "    " + json(tensor).dump() + ": ";
  if (!range) return line + "null";
  char text[64];
  std::snprintf(text, sizeof text, "[%.5g, %.5g]", static_cast<double>(range->low), static_cast<double>(range->high));
  return line + text;
}

}  // namespace

void measureRanges(const std::vector<fs::path>& recordings) {
  const json made_from = madeFrom();
  TensorRanges ranges;
  json names = json::array();
  for (const fs::path& recording : recordings) {
    const json measured = runApart([&] { return watch(recording); });
    for (const auto& [tensor, range] : measured.items()) {
      widen(withoutLook(tensor), range.is_null() ? std::nullopt : std::optional(Range{range[0], range[1]}), ranges);
    }
    names.push_back(recording.filename().string());
  }
  if (ranges.empty()) throw std::runtime_error("no network has run on oneDNN; the system log says why");
  std::printf("{\n  \"made_from\": %s,\n  \"recordings\": %s,\n  \"ranges\": {\n", made_from.dump().c_str(),
              names.dump().c_str());
  for (auto entry = ranges.begin(); entry != ranges.end();) {
    const std::string line = lineOf(entry->first, entry->second);
    std::printf("%s%s\n", line.c_str(), ++entry == ranges.end() ? "" : ",");
  }
  std::puts("  }\n}");
}
