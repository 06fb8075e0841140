#include "platform/workstation/camera/camera_description.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "platform/workstation/camera/lens_service.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr std::uint32_t kMaxFocalLength_um = 1'000'000;
constexpr std::uint32_t kMaxStreamSide = 4096;
constexpr std::size_t kMaxStreamSizes = 32;

constexpr const char* kSourceRule = "allowed is a text: the path of a video file or a URI";
constexpr const char* kLoginRule =
    "allowed is a text: the path of a file with the user's name and the password, where source is rtsp or http";
constexpr const char* kCertificateRule =
    "allowed is a text: the SHA-256 fingerprint of the camera's certificate, where source is rtsps or https";
constexpr const char* kSwitchRule = "allowed are true and false";
constexpr const char* kRotationRule = "allowed are 0, 90, 180 and 270";
constexpr const char* kProductRule = "allowed is a text that is not empty";
constexpr const char* kFocalRule = "allowed is a whole number from 1 to 1000000";
constexpr const char* kSizesRule =
    "allowed is a list of 1 to 32 different texts \"WIDTHxHEIGHT\" of even numbers from 2 to 4096";
constexpr const char* kParametersRule = "allowed is an object of parameter names with texts as values";
constexpr const char* kKeysRule =
    "allowed are source, login, certificate, loop, rotation, mirrored, product_name, focal_length_um, stream_sizes and "
    "parameters";

/// A value as it stands in the file, cut to a length that fits a line, without passwords.
std::string shown(const json& value) {
  constexpr std::size_t kLongest = 40;
  std::string text = withoutSecrets(value.dump(-1, ' ', true, json::error_handler_t::replace));
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  return text;
}

bool isSide(std::uint32_t side) { return side >= 2 && side <= kMaxStreamSide && side % 2 == 0; }

std::optional<StreamSize> parseSize(const json& value) {
  const auto* text = value.get_ptr<const std::string*>();
  if (text == nullptr) return std::nullopt;
  const StreamSize size = streamSizeFrom(*text);
  if (toString(size) != *text || !isSide(size.width) || !isSide(size.height)) return std::nullopt;
  return size;
}

/// Takes the keys over one by one and collects every mistake on the way.
class Reader {
 public:
  explicit Reader(const std::string& file) { m_description.file = file; }

  CameraDescription read(std::string_view text) {
    const json document = json::parse(text, nullptr, false);
    if (!document.is_object()) {
      note("the file", document.is_discarded() ? "is not valid JSON" : "holds no object", "allowed is one JSON object");
    } else {
      if (!document.contains("source")) note("source", "is missing", kSourceRule);
      for (const auto& [key, value] : document.items()) take(key, value);
      checkTogether(document);
    }
    if (!m_mistakes.empty()) throw DescriptionError(m_mistakes);
    return std::move(m_description);
  }

 private:
  void note(const std::string& key, const std::string& mistake, const std::string& allowed) {
    if (!m_mistakes.empty()) m_mistakes += '\n';
    m_mistakes += m_description.file + ": " + key + ": " + mistake + "; " + allowed;
  }

  void take(const std::string& key, const json& value) {
    if (key == "source") {
      takeSource(value);
    } else if (key == "login") {
      takeLogin(value);
    } else if (key == "certificate") {
      takeCertificate(value);
    } else if (key == "loop") {
      takeSwitch(key, value, m_description.loop);
    } else if (key == "rotation") {
      takeRotation(value);
    } else if (key == "mirrored") {
      takeSwitch(key, value, m_description.mirrored);
    } else if (key == "product_name") {
      takeProductName(value);
    } else if (key == "focal_length_um") {
      takeFocalLength(value);
    } else if (key == "stream_sizes") {
      takeStreamSizes(value);
    } else if (key == "parameters") {
      takeParameters(value);
    } else {
      note(shown(key), "is not a key of a camera", kKeysRule);
    }
  }

  void refuse(const std::string& key, const json& value, const std::string& allowed) {
    note(key, "cannot be " + shown(value), allowed);
  }

  void takeSource(const json& value) {
    const auto* source = value.get_ptr<const std::string*>();
    if (source == nullptr || source->empty() || source->find('\0') != std::string::npos) {
      return refuse("source", value, kSourceRule);
    }
    m_description.source = isUri(*source) ? *source : besideTheFile(*source);
  }

  [[nodiscard]] std::string besideTheFile(const std::string& path) const {
    std::error_code error;
    const auto folder = std::filesystem::absolute(m_description.file, error).parent_path();
    return (folder / path).lexically_normal().string();
  }

  void takeLogin(const json& value) {
    const auto* file = value.get_ptr<const std::string*>();
    if (file == nullptr || file->empty() || file->find('\0') != std::string::npos) {
      return refuse("login", value, kLoginRule);
    }
    m_description.login = besideTheFile(*file);
  }

  void takeCertificate(const json& value) {
    const auto* text = value.get_ptr<const std::string*>();
    const auto fingerprint = text == nullptr ? std::nullopt : fingerprintFrom(*text);
    if (!fingerprint) return refuse("certificate", value, kCertificateRule);
    m_description.certificate = *fingerprint;
  }

  /// What each key alone doesn't tell.
  void checkTogether(const json& document) {
    const std::string& source = m_description.source;
    if (source.empty()) return;
    if (!m_description.login.empty() && !takesLogin(source)) {
      refuse("login", document["login"], kLoginRule);
    } else if (!m_description.login.empty() && withoutUser(source) != source) {
      note("login", "is told by source as well", "allowed is one of them, and a file keeps a password better");
    }
    if (!m_description.certificate.empty() && !takesCertificate(source)) {
      refuse("certificate", document["certificate"], kCertificateRule);
    }
  }

  void takeSwitch(const std::string& key, const json& value, bool& target) {
    if (!value.is_boolean()) return refuse(key, value, kSwitchRule);
    value.get_to(target);
  }

  void takeRotation(const json& value) {
    if (!value.is_number_integer() || (value != 0 && value != 90 && value != 180 && value != 270)) {
      return refuse("rotation", value, kRotationRule);
    }
    value.get_to(m_description.rotation);
  }

  void takeProductName(const json& value) {
    if (!value.is_string() || value.get_ref<const std::string&>().empty())
      return refuse("product_name", value, kProductRule);
    value.get_to(m_description.product_name);
  }

  void takeFocalLength(const json& value) {
    if (!value.is_number_integer() || value < 1 || value > kMaxFocalLength_um) {
      return refuse("focal_length_um", value, kFocalRule);
    }
    value.get_to(m_description.focal_length_um);
  }

  void takeStreamSizes(const json& value) {
    if (!value.is_array() || value.empty() || value.size() > kMaxStreamSizes) {
      return refuse("stream_sizes", value, kSizesRule);
    }
    auto& sizes = m_description.stream_sizes;
    sizes.clear();
    for (const json& entry : value) {
      const auto size = parseSize(entry);
      if (!size || std::find(sizes.begin(), sizes.end(), *size) != sizes.end()) {
        refuse("stream_sizes", entry, kSizesRule);
      } else {
        sizes.push_back(*size);
      }
    }
  }

  void takeParameters(const json& value) {
    if (!value.is_object()) return refuse("parameters", value, kParametersRule);
    for (const auto& [name, text] : value.items()) {
      if (name.empty() || !text.is_string()) {
        refuse("parameters." + shown(name), text, kParametersRule);
      } else {
        m_description.parameters[name] = text.get<std::string>();
      }
    }
  }

  CameraDescription m_description;
  std::string m_mistakes;
};

}  // namespace

CameraDescription parseCameraDescription(std::string_view text, const std::string& file) {
  return Reader(file).read(text);
}

std::string readDescription(const std::string& file) {
  try {
    if (auto text = readFile(file, kDescriptionLimitBytes)) return *std::move(text);
  } catch (const std::runtime_error& problem) {
    throw DescriptionError(problem.what());
  }
  throw DescriptionError(file + ": there is no such file");
}

CameraDescription loadCameraDescription(const std::string& file) {
  CameraDescription camera = parseCameraDescription(readDescription(file), file);
  try {
    loginOf(sourceOf(camera));
  } catch (const std::runtime_error& problem) {
    throw DescriptionError(file + ": login: " + problem.what());
  }
  return camera;
}

CameraSource sourceOf(const CameraDescription& camera) {
  return {.uri = camera.source, .login_file = camera.login, .certificate = camera.certificate};
}

const CameraDescription& startedCamera() {
  // Never destroyed, because handles of the camera may be released after main. One entry for each file ever named.
  static auto& mutex = *new std::mutex;
  static auto& cameras = *new std::map<std::string, std::unique_ptr<const CameraDescription>>;
  const char* file = std::getenv("VELMOR_CAMERA");
  if (file == nullptr || *file == '\0') {
    throw DescriptionError("VELMOR_CAMERA: is not set; allowed is the path of a camera's description file");
  }
  const std::scoped_lock lock(mutex);
  auto& camera = cameras[file];
  if (!camera) camera = std::make_unique<const CameraDescription>(loadCameraDescription(file));
  startLensService(camera->focal_length_um);
  return *camera;
}

}  // namespace workstation
