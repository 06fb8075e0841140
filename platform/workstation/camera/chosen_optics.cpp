#include "platform/workstation/camera/chosen_optics.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kFile = "chosen-optics.json";
constexpr std::size_t kMost = 4096;  // bytes of the file

struct Choice {
  Optics optics;
  Optics in_place_of;  ///< what the start named
};

/// As a description is read.
Optics parsed(const json& product_name, const json& focal_length_um, const std::string& place) {
  const json text = {{"source", "-"}, {"product_name", product_name}, {"focal_length_um", focal_length_um}};
  return opticsOf(parseCameraDescription(text.dump(-1, ' ', false, json::error_handler_t::replace), place));
}

Optics parsed(const json& kept) { return parsed(kept.at("product_name"), kept.at("focal_length_um"), kFile); }

json documentOf(const Optics& optics) {
  return {{"product_name", optics.product_name}, {"focal_length_um", optics.focal_length_um}};
}

std::optional<Choice> read(const fs::path& state) {
  const auto text = readFile(state / kFile, kMost);
  if (!text) return std::nullopt;
  try {
    const json kept = json::parse(*text);
    return Choice{parsed(kept), parsed(kept.at("in_place_of"))};
  } catch (const std::exception&) {
    throw std::runtime_error((state / kFile).string() +
                             ": holds no lens and sensor that were chosen; ./run --reset camera removes it");
  }
}

std::string inWords(const Optics& optics) {
  return shown(optics.product_name) + " with " + std::to_string(optics.focal_length_um) + " um";
}

}  // namespace

Optics opticsOf(const CameraDescription& camera) { return {camera.product_name, camera.focal_length_um}; }

Optics opticsFrom(const std::string& product_name, const std::string& focal_length_um) {
  std::uint32_t number = 0;
  const char* const end = focal_length_um.data() + focal_length_um.size();
  const auto [stop, error] = std::from_chars(focal_length_um.data(), end, number);
  const bool is_number = error == std::errc() && stop == end;
  try {
    return parsed(product_name, is_number ? json(number) : json(focal_length_um), "the form");
  } catch (const DescriptionError& mistakes) {
    const std::string_view lines = mistakes.what();
    throw std::runtime_error(std::string(lines.substr(0, lines.find('\n'))));
  }
}

void storeChosenOptics(const fs::path& state, const Optics& chosen, const CameraDescription& running) {
  const auto before = read(state);
  json kept = documentOf(chosen);
  // What a start has named stays known, however often others are chosen.
  kept["in_place_of"] = documentOf(before ? before->in_place_of : opticsOf(running));
  const std::string text = kept.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
  if (text.size() > kMost) throw std::runtime_error("product_name: is too long to be kept");
  replaceFile(state / kFile, text);
}

std::string useChosenOptics(const fs::path& state, CameraDescription& camera) {
  const auto choice = read(state);
  if (!choice) return "";
  const Optics named = opticsOf(camera);
  const std::string words = inWords(choice->optics);
  if (named != choice->in_place_of || named == choice->optics) {
    forgetChosenOptics(state);
    if (named == choice->optics) return "";
    return "Lens: " + inWords(named) + "; what was chosen on the page, " + words + ", counts no more\n";
  }
  camera.product_name = choice->optics.product_name;
  camera.focal_length_um = choice->optics.focal_length_um;
  return "Lens: " + words + ", chosen on the page in place of " + inWords(named) + "; ./run --reset camera ends that\n";
}

bool forgetChosenOptics(const fs::path& state) { return removeFile(state / kFile); }

}  // namespace workstation
