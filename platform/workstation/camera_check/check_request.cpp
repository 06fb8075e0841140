#include "platform/workstation/camera_check/check_request.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 5> kOptions{"--login", "--camera", "--picture", "--certificate", "--wait"};
constexpr int kMostWait_s = 120;
constexpr const char* kNoLoginInAddress =
    "every process of this machine can read a command line, so no password belongs in an address on it: write user and "
    "password into a file, a line each, that only you can read (chmod 600), and give --login FILE";

std::chrono::seconds waitFrom(const std::string& text) {
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < 1 || seconds > kMostWait_s) {
    throw std::runtime_error("--wait needs whole seconds from 1 to " + std::to_string(kMostWait_s));
  }
  return std::chrono::seconds(seconds);
}

std::string fullPath(const std::string& path) { return fs::absolute(path).lexically_normal().string(); }

/// The options' values by name; what is none goes to `rest`. Each may be given once, as two words or with "=".
std::map<std::string, std::string> takeOptions(const std::vector<std::string>& words, std::vector<std::string>& rest) {
  std::map<std::string, std::string> options;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (!word->starts_with("--")) {
      rest.push_back(*word);
      continue;
    }
    const std::size_t equals = word->find('=');
    const std::string name = word->substr(0, equals);
    if (std::find(kOptions.begin(), kOptions.end(), name) == kOptions.end()) {
      throw std::runtime_error("\"" + withoutSecrets(name) + "\" is not understood here; see --help");
    }
    std::string value = equals == std::string::npos ? "" : word->substr(equals + 1);
    if (equals == std::string::npos && word + 1 != words.end()) value = *++word;
    if (value.empty()) throw std::runtime_error(name + " needs a value");
    if (!options.emplace(name, value).second) throw std::runtime_error(name + " was given twice");
  }
  return options;
}

void takeDescription(const std::string& file, CheckRequest& request) {
  const CameraDescription camera = loadCameraDescription(file);
  request.source = sourceOf(camera);
  request.rotation = camera.rotation;
  request.mirrored = camera.mirrored;
}

/// What the source and the words beside it cannot be together.
void check(const CheckRequest& request) {
  const CameraSource& source = request.source;
  if (!source.login_file.empty() && !takesLogin(source.uri)) {
    throw std::runtime_error("--login is for a camera's address: rtsp, rtsps, http or https");
  }
  if (!source.certificate.empty() && !takesCertificate(source.uri)) {
    throw std::runtime_error("--certificate is for an address of rtsps or https");
  }
  loginOf(source);
  if (!request.picture) return;
  const fs::path folder = fs::path(*request.picture).parent_path();
  if (!fs::is_directory(folder)) throw std::runtime_error(folder.string() + ": there is no such folder");
  if (fs::is_directory(*request.picture)) throw std::runtime_error(*request.picture + ": is a folder");
}

}  // namespace

CheckRequest parseCheck(const std::vector<std::string>& words) {
  CheckRequest request;
  for (const std::string& word : words) request.help = request.help || word == "--help";
  if (request.help) return request;
  if (words == std::vector<std::string>{"answer"}) {
    request.from_page = true;
    return request;
  }
  if (words.empty() || words[0] != "check") throw std::runtime_error("camera needs check; see --help");
  std::vector<std::string> rest;
  const auto options = takeOptions({words.begin() + 1, words.end()}, rest);
  const auto value = [&](const char* name) {
    const auto found = options.find(name);
    return found == options.end() ? std::optional<std::string>() : found->second;
  };
  const auto camera = value("--camera");
  if (rest.size() + (camera ? 1 : 0) != 1 || (!rest.empty() && rest[0].empty())) {
    throw std::runtime_error("camera check needs one address, or --camera and a camera's description; see --help");
  }
  if (camera) {
    takeDescription(*camera, request);
  } else {
    request.source.uri = isUri(rest[0]) ? rest[0] : fullPath(rest[0]);
    if (withoutUser(request.source.uri) != request.source.uri) throw std::runtime_error(kNoLoginInAddress);
  }
  if (const auto login = value("--login")) request.source.login_file = fullPath(*login);
  if (const auto certificate = value("--certificate")) {
    const auto fingerprint = fingerprintFrom(*certificate);
    if (!fingerprint) throw std::runtime_error("--certificate needs a SHA-256 fingerprint, 64 hexadecimal digits");
    request.source.certificate = *fingerprint;
  }
  if (const auto wait = value("--wait")) request.wait = waitFrom(*wait);
  if (const auto picture = value("--picture")) request.picture = fullPath(*picture);
  check(request);
  return request;
}

CheckRequest parsePageCheck(const std::string& document) {
  const auto asked = nlohmann::json::parse(document, nullptr, false);
  if (!asked.is_object()) throw std::runtime_error("what is asked is no JSON object");
  try {
    CheckRequest request;
    request.from_page = true;
    asked.at("source").get_to(request.source.uri);
    asked.at("user").get_to(request.source.login.user);
    asked.at("password").get_to(request.source.login.password);
    asked.at("certificate").get_to(request.source.certificate);
    asked.at("rotation").get_to(request.rotation);
    asked.at("mirrored").get_to(request.mirrored);
    return request;
  } catch (const nlohmann::json::exception&) {
    throw std::runtime_error("what is asked lacks a key");
  }
}

const char* checkUsage() {
  return R"(./run camera check ADDRESS    tries a camera (rtsp://HOST/PATH), a device or a video as the program would, for 20 s at
                            most, and says what it found, or what is wrong and what to do
  --camera FILE             what a camera's description (*.json) names, in place of ADDRESS
  --login FILE              who signs in there: the user's name on the file's first line, the password on its second;
                            nobody but you may read it (chmod 600)
  --certificate SHA256      the fingerprint of the one certificate that is believed (rtsps, https)
  --wait S                  waits S seconds for the first picture instead of 10
  --picture FILE.jpg        a picture to look at goes there; without it none is written, since it shows a room
Ends with 0 when the program can watch it, with 1 when not, with 2 when it could not be tried.
)";
}

}  // namespace workstation
