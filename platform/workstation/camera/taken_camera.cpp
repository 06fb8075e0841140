#include "platform/workstation/camera/taken_camera.h"

#include <glib.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kFile = "taken-camera.json";
constexpr std::string_view kLoginPrefix = "taken-camera-", kLoginSuffix = ".login";
constexpr std::size_t kMost = 16384;  // bytes of the file

bool isLoginFile(const std::string& name) { return name.starts_with(kLoginPrefix) && name.ends_with(kLoginSuffix); }

/// Under a name that no camera before it has: the file that names it is replaced in one step.
std::string storeLogin(const fs::path& state, const Login& login) {
  const GLibPtr<gchar> id(g_uuid_string_random());
  std::string name = std::string(kLoginPrefix).append(id.get()).append(kLoginSuffix);
  replaceFile(state / name, login.user + "\n" + login.password + "\n");
  return name;
}

/// Logins of cameras that were taken over before. One that stays is no mistake.
void removeLogins(const fs::path& state, const std::string& but) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(state, ignored)) {
    const std::string name = entry.path().filename().string();
    if (isLoginFile(name) && name != but) fs::remove(entry.path(), ignored);
  }
}

}  // namespace

std::optional<TakenCamera> readTakenCamera(const fs::path& state) {
  const fs::path file = state / kFile;
  const auto text = readFile(file, kMost);
  if (!text) return std::nullopt;
  try {
    const json kept = json::parse(*text);
    TakenCamera camera;
    kept.at("source").get_to(camera.source.uri);
    kept.at("certificate").get_to(camera.source.certificate);
    kept.at("in_place_of").get_to(camera.in_place_of);
    kept.at("time").get_to(camera.time);
    const auto login = kept.at("login").get<std::string>();
    if (!login.empty()) camera.source.login_file = (state / login).string();
    if (isUri(camera.source.uri) && (login.empty() || isLoginFile(login))) return camera;
  } catch (const json::exception&) {
    // As if it held nothing that is meant.
  }
  throw std::runtime_error(file.string() + ": is no camera that was taken over; ./run --reset camera removes it");
}

TakenCamera storeTakenCamera(const fs::path& state, TakenCamera camera) {
  std::string login;
  if (!camera.source.login.user.empty()) login = storeLogin(state, camera.source.login);
  const json kept = {{"source", camera.source.uri},
                     {"login", login},
                     {"certificate", camera.source.certificate},
                     {"in_place_of", camera.in_place_of},
                     {"time", camera.time}};
  replaceFile(state / kFile, kept.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
  removeLogins(state, login);
  camera.source.login = {};
  camera.source.login_file = login.empty() ? "" : (state / login).string();
  return camera;
}

std::string useTakenCamera(const fs::path& state, CameraDescription& camera) {
  const auto taken = readTakenCamera(state);
  if (!taken) return "";
  const std::string name = withoutSecrets(taken->source.uri);
  const std::string named = withoutSecrets(camera.source);
  if (withoutUser(camera.source) != taken->in_place_of) {
    forgetTakenCamera(state);
    return "Camera: " + named + "; what was taken over on the page, " + name + ", counts no more\n";
  }
  camera.source = taken->source.uri;
  camera.login = taken->source.login_file;
  camera.certificate = taken->source.certificate;
  return "Camera: " + name + ", taken over on the page in place of " + named + "; ./run --reset camera ends that\n";
}

bool forgetTakenCamera(const fs::path& state) {
  if (!removeFile(state / kFile)) return false;
  removeLogins(state, "");
  return true;
}

}  // namespace workstation
