#include "platform/workstation/launcher/launch_plan.h"

#include <fcntl.h>
#include <glib.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/support/owners.h"
#include "platform/support/spare_memory.h"
#include "platform/workstation/camera/chosen_optics.h"
#include "platform/workstation/camera/taken_camera.h"
#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/inference/model_sidecar.h"
#include "platform/workstation/launcher/launch_media.h"
#include "platform/workstation/launcher/retrace_plan.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/parameters/settings_document.h"
#include "platform/workstation/system/state_directory.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kPackageFolders[] = {"usr/local/packages", "mnt/flash/usr/local/packages"};
constexpr const char* kModelParameters[] = {"LandscapeModelFileName", "PortraitModelFileName",
                                            "mobilenetModelFileName"};

/// A program that was killed a moment ago may leave a helper that still holds the lock.
constexpr std::chrono::milliseconds kLockPatience{500}, kLockPause{50};

bool isDescription(const std::string& source) { return !isUri(source) && fs::path(source).extension() == ".json"; }

/// Traces are JSON, too: whoever replays some other file is told of both.
void checkNamesSource(const std::string& file) {
  const json document = json::parse(readDescription(file), nullptr, false);
  if (document.is_object() && !document.contains("source")) {
    throw DescriptionError(file + ": is no trace and no camera's description");
  }
}

std::string fullName(const std::string& source) {
  return isUri(source) ? source : fs::absolute(source).lexically_normal().string();
}

/// The demo's video, whatever container it is in.
fs::path demoVideo(const fs::path& folder) {
  for (const char* suffix : {".mp4", ".webm", ".mkv"}) {
    if (fs::path video = folder / (std::string("demo") + suffix); fs::exists(video)) {
      return video;
    }
  }
  throw std::runtime_error((folder / "demo.mp4").string() + ": the demo's video is missing");
}

json toJson(const CameraDescription& camera) {
  json sizes = json::array();
  for (const StreamSize size : camera.stream_sizes) {
    sizes.push_back(toString(size));
  }
  json description{{"source", camera.source},
                   {"loop", camera.loop},
                   {"rotation", camera.rotation},
                   {"mirrored", camera.mirrored},
                   {"product_name", camera.product_name},
                   {"focal_length_um", camera.focal_length_um},
                   {"stream_sizes", sizes},
                   {"parameters", camera.parameters}};
  if (!camera.login.empty()) description["login"] = camera.login;
  if (!camera.certificate.empty()) description["certificate"] = camera.certificate;
  return description;
}

void linkFiles(const fs::path& from, const fs::path& to, std::initializer_list<const char*> suffixes) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(from, error)) {
    const auto has = [&](const char* suffix) { return entry.path().extension() == suffix; };
    if (std::any_of(suffixes.begin(), suffixes.end(), has)) {
      fs::create_symlink(fs::absolute(entry.path()), to / entry.path().filename());
    }
  }
}

/// The package directories of the camera below `root`, as links into the source tree.
void layOutPackage(const fs::path& root, const fs::path& source_tree) {
  fs::remove_all(root);
  for (const char* folder : kPackageFolders) {
    const fs::path package = root / folder / kAppName;
    fs::create_directories(package);
    linkFiles(source_tree / "models", package, {".onnx", ".json"});
    linkFiles(source_tree / "package", package, {".json"});
    fs::create_directory_symlink(fs::absolute(source_tree / "web"), package / "html");
  }
}

/// The network that is tried; meaningless without one.
fs::path networkOf(const LaunchRequest& request) { return fs::absolute(request.model.value_or("")).lexically_normal(); }

/// The network as one more of the package's.
void addToPackage(const fs::path& root, const fs::path& model) {
  for (const char* folder : kPackageFolders) {
    const fs::path link = root / folder / kAppName / model.filename();
    fs::remove(link);
    fs::create_symlink(model, link);
  }
}

/// The models that the program will ask for: there, whole, and described.
void checkModels(const fs::path& root, const Parameters& values) {
  for (const char* parameter : kModelParameters) {
    const auto name = values.find(parameter);
    if (name == values.end() || name->second.empty()) {
      throw std::runtime_error(std::string(parameter) + ": names no model file");
    }
    std::error_code error;
    const fs::path link = root / kPackageFolders[0] / kAppName / name->second;
    const fs::path model = fs::canonical(link, error);
    if (error || !fs::is_regular_file(model)) {
      throw std::runtime_error("models/" + name->second + ": the model that " + parameter + " names is missing");
    }
    readModelSidecar(model.string(), readFile(model, kMaxModelBytes).value_or(""));
  }
}

/// What the program's parameter store will hold.
Parameters effectiveParameters(const fs::path& state, const Parameters& defaults, const CameraDescription& camera) {
  StoredState stored = StoredParameters(state, kAppName).load().value_or(StoredState());
  return startFrom(std::move(stored), defaults, camera.parameters).values;
}

StatePlace temporaryPlace() {
  std::string name = (fs::temp_directory_path() / "velmor-replay-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error(name + ": cannot be created: " + std::strerror(errno));
  }
  return {name, true};
}

StatePlace placeFor(const LaunchRequest& request) {
  return request.replay && !request.state ? temporaryPlace() : StatePlace(lastingPlace(request), false);
}

/// A disk without room must not keep a start from going on with what stands on it already.
void writeIfOther(const fs::path& path, const std::string& text) {
  constexpr std::size_t kMost = std::size_t{4} << 20;
  try {
    if (readFile(path, kMost) == text) return;
  } catch (const std::exception&) {
    // Whatever stands there is replaced.
  }
  replaceFile(path, text);
}

/// What is set for this run.
ParameterGroup groupOf(const LaunchRequest& request) {
  return request.sets.empty() ? ParameterGroup() : request.sets.front();
}

const char* programFor(const LaunchRequest& request) {
  if (isTraceReplay(request)) return "velmor_retrace";
  return request.model ? "velmor_model_check" : request.truth ? "velmor_reference" : "velmor_care";
}

void checkTruth(const LaunchRequest& request) {
  if (request.truth && !fs::is_regular_file(*request.truth)) {
    throw std::runtime_error(*request.truth + ": there is no such file");
  }
}

void checkNoFolder(const LaunchRequest& request) {
  if (request.replay && request.source && fs::is_directory(*request.source)) {
    throw UsageError(*request.source + ": is a folder; replay one file of it");
  }
}

fs::path fullPath(const std::string& name) { return fs::absolute(name).lexically_normal(); }

/// What a replay's trace takes the place of: an older trace, or one that found no room. A pipe would wait for a reader.
void checkReplaced(const fs::path& place) {
  std::error_code error;
  if (!fs::exists(place, error)) return;
  if (!fs::is_regular_file(place)) throw UsageError(place.string() + ": is no file; --trace needs a file's name");
  if (fs::file_size(place, error) > 0 && !isTraceFile(place)) {
    throw UsageError(place.string() + ": is there already and is no trace; --trace replaces only a trace");
  }
}

/// Nothing that the run reads may become its trace.
void checkTracePlace(const LaunchRequest& request, const CameraDescription& camera) {
  if (!request.trace) return;
  const fs::path place = fullPath(*request.trace);
  const bool is_directory = fs::is_directory(place);
  if (request.replay && is_directory)
    throw UsageError(*request.trace + ": is a directory; --trace needs a file's name");
  if (!request.replay && fs::exists(place) && !is_directory) {
    throw UsageError(*request.trace + ": is no directory; --trace of a live run needs one");
  }
  const fs::path folder = place.parent_path();
  if (request.replay && !fs::is_directory(folder)) {
    throw UsageError(folder.string() + ": there is no such folder for the trace");
  }
  for (const auto& input : {request.source, std::optional(camera.source), request.settings, request.truth}) {
    std::error_code ignored;
    if (input && fs::equivalent(place, *input, ignored)) {
      throw UsageError(*request.trace + ": is what the run reads; the trace needs a file of its own");
    }
  }
  if (request.replay) checkReplaced(place);
}

void addHowNetworksRun(const LaunchRequest& request, std::map<std::string, std::string>& environment) {
  if (request.threads) {
    environment["VELMOR_THREADS"] = *request.threads;
    environment["OMP_WAIT_POLICY"] = "passive";  // threads that wait for the next layer sleep
  }
  if (request.precision) {
    environment["VELMOR_PRECISION"] = *request.precision;
  }
  if (request.eyes) {
    environment["VELMOR_EYES"] = *request.eyes;
  }
}

/// A program passes on some 20 MB again and again: on a disk they would be written to it every few seconds, and each
/// cycle would wait for it when it is slow. None where there is no such folder, or little room in it.
std::optional<std::string> folderInMemory() {
  constexpr const char* kFolder = "/dev/shm";
  constexpr std::uintmax_t kRoom = std::uintmax_t{48} << 20;
  struct statfs system {};
  const bool is_memory =
      ::statfs(kFolder, &system) == 0 && system.f_type == TMPFS_MAGIC && ::access(kFolder, R_OK | W_OK | X_OK) == 0;
  if (!is_memory || system.f_bavail * static_cast<std::uintmax_t>(system.f_bsize) < kRoom) return std::nullopt;
  return kFolder;
}

std::map<std::string, std::string> environmentFor(const LaunchRequest& request, const fs::path& source_tree,
                                                  const fs::path& state, bool on_terminal) {
  std::map<std::string, std::string> environment = {
      {"VELMOR_ROOT", (state / "root").string()},
      {"VELMOR_STATE", state.string()},
      {"VELMOR_CAMERA", (state / "camera.json").string()},
      {"VELMOR_MANIFEST", (source_tree / "package" / "manifest.json").string()},
      {"VELMOR_OUTPUT", !request.replay ? "text"
                        : request.json  ? "json"
                                        : "replay"},
      // A video that begins again has new threads; with pools of their own, what those before gave back stays taken.
      {"MALLOC_ARENA_MAX", "2"},
      // What is larger goes back as soon as it is free; it would else lie between what stays. Pictures' memory is kept.
      {"MALLOC_MMAP_THRESHOLD_", std::to_string(kLargeMemory)}};
  if (const auto folder = folderInMemory()) {
    environment["VELMOR_TMP"] = *folder;
  }
  if (request.replay) {
    environment["VELMOR_CLOCK"] = "replay";
  }
  if (request.replay && on_terminal && !request.model) {
    environment["VELMOR_PROGRESS"] = "1";
  }
  if (request.model) {
    environment["VELMOR_MODEL"] = networkOf(request).string();
    environment["VELMOR_SOURCE_DIR"] = fs::absolute(source_tree).string();
  }
  if (request.trace) {
    environment[request.replay ? "VELMOR_TRACE" : "VELMOR_TRACE_DIR"] = fullPath(*request.trace).string();
  }
  if (isTraceReplay(request)) {
    environment["VELMOR_RETRACE"] = fullPath(*request.source).string();
    environment["VELMOR_SET"] = json(groupOf(request)).dump(-1, ' ', false, json::error_handler_t::replace);
  }
  addHowNetworksRun(request, environment);
  if (request.truth) {
    environment["VELMOR_TRUTH"] = fs::absolute(*request.truth).string();
  }
  return environment;
}

/// What the run begins with: the words of an installer, or all that a trace was made with.
void checkValues(const LaunchRequest& request, const CameraDescription& camera, const fs::path& source_tree) {
  const std::string place = settingsName(request);
  if (isTraceReplay(request)) {
    checkRecorded(camera.parameters, source_tree / "package" / "manifest.json", place);
  } else {
    checkParameters(camera.parameters, packageDefaults(source_tree), place);
  }
}

}  // namespace

StatePlace::StatePlace(fs::path directory, bool temporary)
    : m_directory(std::move(directory)), m_removed_at_end(temporary ? m_directory : fs::path()) {
  std::error_code error;
  fs::create_directories(m_directory, error);
  if (error) {
    throw std::runtime_error(m_directory.string() + ": cannot be used as the state directory: " + error.message());
  }
  const fs::path file = m_directory / "lock";
  m_lock = FileDescriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (m_lock.get() < 0) {
    throw std::runtime_error(file.string() + ": cannot be opened: " + std::strerror(errno));
  }
  for (auto waited = kLockPause; ::flock(m_lock.get(), LOCK_EX | LOCK_NB) != 0; waited += kLockPause) {
    if (waited > kLockPatience) {
      throw std::runtime_error(m_directory.string() + ": another run is using this state directory; end it first");
    }
    std::this_thread::sleep_for(kLockPause);
  }
}

StatePlace::~StatePlace() {
  if (!m_removed_at_end.empty()) {
    std::error_code ignored;
    fs::remove_all(m_removed_at_end, ignored);
  }
}

void layOver(CameraDescription& camera, const fs::path& settings) {
  layOver(camera, readDescription(settings.string()), settings.string());
}

CameraDescription requestedCamera(const LaunchRequest& request, const fs::path& source_tree) {
  CameraDescription camera;
  if (!request.source) {
    const fs::path demo = source_tree / "simulator" / "demo";
    camera.source = demoVideo(demo).string();
    camera.loop = true;
    layOver(camera, demo / "demo.settings.json");
  } else if (isTraceReplay(request)) {
    camera = recordedCamera(*request.source).camera;
  } else if (isDescription(*request.source)) {
    if (request.replay) checkNamesSource(*request.source);
    camera = loadCameraDescription(*request.source);
  } else {
    camera.source = fullName(*request.source);
    camera.login = request.login ? fullName(*request.login) : "";
    loginOf(sourceOf(camera));  // throws what is wrong with it
  }
  if (request.settings) {
    layOver(camera, *request.settings);
  }
  if (request.loop && kindOf(camera.source) != SourceKind::kFile) {
    throw UsageError("--loop is for a video file; any other source is opened again by itself when it ends");
  }
  camera.loop = camera.loop || request.loop;
  for (const auto& [name, value] : groupOf(request)) {
    camera.parameters.insert_or_assign(name, value);
  }
  return camera;
}

std::string stateName(const LaunchRequest& request) {
  constexpr int kHashLength = 8;
  if (!request.source) {
    return "demo";
  }
  const std::string name = withoutUser(fullName(*request.source));
  std::string stem = fs::path(withoutSecrets(name)).stem().string();
  std::replace_if(
      stem.begin(), stem.end(), [](char c) { return !g_ascii_isalnum(c) && !std::strchr("._-", c); }, '_');
  const GLibPtr<gchar> hash(g_compute_checksum_for_string(G_CHECKSUM_SHA256, name.c_str(), -1));
  return stem + "-" + std::string(hash.get(), kHashLength);
}

fs::path lastingPlace(const LaunchRequest& request) {
  return request.state ? fs::absolute(*request.state).lexically_normal() : stateHome() / stateName(request);
}

std::string settingsName(const LaunchRequest& request) {
  if (isTraceReplay(request)) return recordedCamera(*request.source).settings_place;
  return request.settings.value_or(request.source.value_or("demo.settings.json"));
}

Parameters packageDefaults(const fs::path& source_tree) {
  return manifestDefaults(source_tree / "package" / "manifest.json");
}

LaunchPlan prepareLaunch(const LaunchRequest& request, const fs::path& source_tree, bool on_terminal) {
  const bool is_trace = isTraceReplay(request);
  if (is_trace) checkTraceReplay(request);
  checkNoFolder(request);
  const Parameters defaults = packageDefaults(source_tree);
  checkSet(groupOf(request), source_tree / "package" / "manifest.json");
  CameraDescription camera = requestedCamera(request, source_tree);
  checkValues(request, camera, source_tree);
  if (std::string problem = is_trace ? "" : videoProblem(camera.source, request.replay); !problem.empty()) {
    throw std::runtime_error(problem);
  }
  checkTruth(request);
  checkTracePlace(request, camera);

  LaunchPlan plan;
  plan.program = programFor(request);
  plan.place = placeFor(request);
  const fs::path state = plan.place.directory();
  if (!request.replay) plan.camera_line = useTakenCamera(state, camera) + useChosenOptics(state, camera);
  const fs::path root = state / "root";
  layOutPackage(root, source_tree);
  if (request.model && fs::is_regular_file(networkOf(request))) {
    addToPackage(root, networkOf(request));
  }
  const Parameters values = effectiveParameters(state, defaults, camera);
  if (!request.truth && !request.model && !is_trace) {
    checkModels(root, values);
  }
  writeIfOther(state / "camera.json", toJson(camera).dump(2) + "\n");

  plan.environment = environmentFor(request, source_tree, state, on_terminal);
  return plan;
}

}  // namespace workstation
