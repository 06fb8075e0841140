// velmor_model_check: whether a network fits the program, and what the program would find with it.
//
// velmor_run starts it: VELMOR_MODEL names the network, which lies in the package as well, VELMOR_SOURCE_DIR the source
// tree, and the camera is the demo. All is asked of the interfaces and classes that the program uses. Ends with 0 when
// the network fits and finds the demo's people, else with 1 and a line for each reason on standard error.
#include <fcntl.h>
#include <larod.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/calibration_params.h"
#include "app/initial_params.h"
#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "platform/clock/clock.h"
#include "platform/support/file_descriptor.h"
#include "platform/workstation/inference/eyes.h"
#include "platform/workstation/inference/last_run.h"
#include "platform/workstation/inference/model_sidecar.h"
#include "platform/workstation/system/durable_file.h"
#include "pose/BodypixPoseEstimator.h"
#include "pose/larod_helpers.h"
#include "pose/mmfile.h"
#include "pose/skeleton_fusion.h"
#include "reference/truth.h"
#include "validation/Validator.h"
#include "video/VideoStreamSource.h"

namespace {

namespace fs = std::filesystem;
using workstation::ModelSidecar;
using workstation::TensorLayout;

constexpr int kDoesNotFit = 1;
/// SIGALRM then ends the process, whatever the network keeps it busy with; the launcher tells why.
constexpr unsigned kPatience_s = 150;
/// A skeleton whose shoulders lie so near a person's, as a share of the person's height in the picture, is that person.
constexpr float kSamePerson = 0.3F;
/// Scales are the same up to what a file's digits leave of them.
constexpr float kSameScale = 1e-4F;

/// What keeps the network from being used, each without the file's name.
using Problems = std::vector<std::string>;

/// A failure of which the system log has told on standard error.
struct AlreadyTold : std::exception {};

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
  std::array<char, 1024> line{};
  va_list values;
  va_start(values, format);
  std::vsnprintf(line.data(), line.size(), format, values);
  va_end(values);
  return line.data();
}

void say(const std::string& line) { std::printf("%s\n", line.c_str()); }

/// What throws only after it has logged the reason.
template <typename Make>
auto logged(Make make) {
  try {
    return make();
  } catch (const std::runtime_error&) {
    throw AlreadyTold();
  } catch (const char*) {
    throw AlreadyTold();
  }
}

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  if (value == nullptr) throw std::runtime_error(std::string(name) + " is not set; start the check with ./run");
  return value;
}

// ---- The network as the inference service shows it ----

struct Tensor {
  std::string name;
  larodTensorDataType type = LAROD_TENSOR_DATA_TYPE_INVALID;
  std::vector<std::size_t> shape;
  std::size_t bytes = 0;
};

std::string describe(larodTensorDataType type, std::span<const std::size_t> shape) {
  std::string sizes;
  for (const std::size_t size : shape) sizes.append(sizes.empty() ? "" : ", ").append(std::to_string(size));
  return "[" + sizes + "] of " + (type == LAROD_TENSOR_DATA_TYPE_UINT8 ? "bytes" : "floats");
}

Tensor tensorOf(const larodTensor* tensor) {
  LarodError error;
  const larodTensorDims* const dims = larodGetTensorDims(tensor, error.out());
  Tensor result{larodGetTensorName(tensor, nullptr), larodGetTensorDataType(tensor, nullptr), {}, 0};
  if (dims == nullptr || !larodGetTensorFdSize(tensor, &result.bytes, nullptr)) {
    throw std::runtime_error(error.message());
  }
  result.shape.assign(dims->dims, dims->dims + dims->len);
  return result;
}

/// A network in the service's hands.
class LoadedNetwork {
 public:
  /// Throws std::runtime_error with the service's line, which names the file.
  explicit LoadedNetwork(const std::string& file);
  ~LoadedNetwork();
  LoadedNetwork(const LoadedNetwork&) = delete;
  LoadedNetwork& operator=(const LoadedNetwork&) = delete;

  const Tensor& input() const { return m_input; }
  const std::vector<Tensor>& outputs() const { return m_outputs; }

  /// Runs on the source's picture, turned, and says what of the result is not finite.
  Problems run(ImageFrameSource& source, int rotation);
  /// How long the last run took.
  std::chrono::milliseconds duration() const { return m_duration; }

 private:
  void release();
  void readTensors();

  larodConnection* m_connection = nullptr;
  larodModel* m_model = nullptr;
  larodTensor** m_inputs = nullptr;
  larodTensor** m_output_tensors = nullptr;
  std::size_t m_input_count = 0;
  std::size_t m_output_count = 0;
  Tensor m_input;
  std::vector<Tensor> m_outputs;
  std::chrono::milliseconds m_duration{};
};

LoadedNetwork::LoadedNetwork(const std::string& file) {
  LarodError error;
  const FileDescriptor network(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (larodConnect(&m_connection, error.out())) {
    m_model = larodLoadModel(m_connection, network.get(), g_InitialParams.l_LarodChipType, LAROD_ACCESS_PUBLIC,
                             file.c_str(), nullptr, error.out());
  }
  if (m_model == nullptr) {
    release();
    throw std::runtime_error(error.message());
  }
  readTensors();
}

LoadedNetwork::~LoadedNetwork() { release(); }

void LoadedNetwork::release() {
  destroyTensors(m_connection, m_inputs, m_input_count);
  destroyTensors(m_connection, m_output_tensors, m_output_count);
  larodDestroyModel(&m_model);
  if (m_connection != nullptr) larodDisconnect(&m_connection, nullptr);
}

void LoadedNetwork::readTensors() {
  m_inputs = larodCreateModelInputs(m_model, &m_input_count, nullptr);
  m_output_tensors = larodCreateModelOutputs(m_model, &m_output_count, nullptr);
  m_input = tensorOf(m_inputs[0]);
  std::transform(m_output_tensors, m_output_tensors + m_output_count, std::back_inserter(m_outputs), tensorOf);
}

Problems LoadedNetwork::run(ImageFrameSource& source, int rotation) {
  const auto file = [](std::size_t size) {
    return logged([size] { return std::make_unique<MemoryMappedFile>("/tmp/check-XXXXXX", static_cast<int>(size)); });
  };
  const auto picture = file(m_input.bytes);
  const auto results = file(1);  // one after the other, read by nobody
  source.setDirty();
  if (!source.getFrame(static_cast<int>(m_input.shape[1]), static_cast<int>(m_input.shape[2]), rotation,
                       picture->getBuffer())) {
    throw AlreadyTold();
  }
  larodSetTensorFd(m_inputs[0], picture->getFileDescriptor(), nullptr);
  for (std::size_t i = 0; i < m_output_count; ++i) {
    larodSetTensorFd(m_output_tensors[i], results->getFileDescriptor(), nullptr);
  }
  LarodError error;
  larodJobRequest* job =
      larodCreateJobRequest(m_model, m_inputs, m_input_count, m_output_tensors, m_output_count, nullptr, error.out());
  const auto start = std::chrono::steady_clock::now();
  const bool ran = job != nullptr && larodRunJob(m_connection, job, error.out());
  m_duration = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  larodDestroyJobRequest(&job);
  return ran ? workstation::layersNotFinite(*m_model) : Problems{error.message()};
}

// ---- What the program needs ----

struct PoseSize {
  std::size_t width;
  std::size_t height;
  bool operator==(const PoseSize&) const = default;
};

PoseSize sizeOf(const Tensor& input) { return {input.shape[2], input.shape[1]}; }

PoseSize landscape() { return {static_cast<std::size_t>(g_StreamWidth), static_cast<std::size_t>(g_StreamHeight)}; }
PoseSize portrait() { return {landscape().height, landscape().width}; }
/// The picture is cut and scaled to it, and never turned.
PoseSize scaled() { return {landscape().width + 1, landscape().height + 1}; }

std::string nameOf(PoseSize size) { return text("%zux%zu", size.width, size.height); }

void checkQuantization(const std::string& where, const TensorLayout& layout, const Dequantizer& code,
                       Problems& problems) {
  if (std::abs(layout.scale - code.modelScale()) <= kSameScale * code.modelScale() &&
      layout.zero_point == code.zeroPoint()) {
    return;
  }
  problems.push_back(where + text(": has scale %.7g and zero point %d; the program reads scale %.7g and zero point %d",
                                  static_cast<double>(layout.scale), layout.zero_point,
                                  static_cast<double>(code.modelScale()), code.zeroPoint()));
}

Problems poseProblems(const LoadedNetwork& network, const ModelSidecar& sidecar) {
  const PoseSize size = sizeOf(network.input());
  if (size != landscape() && size != portrait() && size != scaled()) {
    return {"input: takes pictures of " + nameOf(size) + "; a pose network takes " + nameOf(landscape()) + " or " +
            nameOf(portrait()) + " (or " + nameOf(scaled()) + ")"};
  }
  constexpr std::size_t kStride = BodypixPoseEstimator::kStride;
  Problems problems;
  for (std::size_t i = 0; i < kPoseOutputs.size(); ++i) {
    const Tensor& output = network.outputs()[i];
    const PoseOutput& wanted = kPoseOutputs[i];
    const std::string where = text("output %zu \"%s\" (%s)", i, output.name.c_str(), wanted.name);
    const std::array<std::size_t, 4> shape{1, size.height / kStride + 1, size.width / kStride + 1, wanted.channels};
    if (output.type != LAROD_TENSOR_DATA_TYPE_UINT8 || !std::ranges::equal(output.shape, shape)) {
      problems.push_back(where + ": is " + describe(output.type, output.shape) + ", must be " +
                         describe(LAROD_TENSOR_DATA_TYPE_UINT8, shape));
    } else if (wanted.code != nullptr) {
      checkQuantization(where, sidecar.outputs[i], *wanted.code, problems);
    }
  }
  return problems;
}

Problems detectorProblems(const LoadedNetwork& network) {
  Problems problems;
  const PoseSize size = sizeOf(network.input());
  if (std::max(size.width, size.height) > Validator::kLargestSide) {
    problems.push_back("input: takes pictures of " + nameOf(size) +
                       text("; a person detector's sides are at most %d", Validator::kLargestSide));
  }
  for (std::size_t i = 0; i < Validator::kOutputs.size(); ++i) {
    const Tensor& output = network.outputs()[i];
    const Validator::Output& wanted = Validator::kOutputs[i];
    if (output.type != LAROD_TENSOR_DATA_TYPE_FLOAT32 ||
        output.bytes < static_cast<std::size_t>(wanted.values) * sizeof(float)) {
      problems.push_back(text("output %zu \"%s\" (%s)", i, output.name.c_str(), wanted.name) + ": is " +
                         describe(output.type, output.shape) + text(", must be %d floats or more", wanted.values));
    }
  }
  return problems;
}

std::string listOf(const auto& outputs) {
  std::string names;
  for (const auto& output : outputs) names.append(names.empty() ? "" : ", ").append(output.name);
  return text("%zu (%s)", outputs.size(), names.c_str());
}

// ---- The demo ----

/// A picture of the demo with the people in it.
struct Moment {
  TimeStamp time{};
  int rotation = 0;   ///< degrees by which the picture is turned for the network
  Skeletons upright;  ///< those who are upright in the turned picture
  Skeletons everybody;
};

float visibility(const Skeletons& people) {
  float sum = 0;
  for (const Skeleton& person : people) {
    for (const auto& [part, keypoint] : person.keypoints) sum += keypoint.score;
  }
  return sum;
}

Skeletons uprightAt(int rotation, const Skeletons& people) {
  Skeletons upright;
  std::copy_if(people.begin(), people.end(), std::back_inserter(upright), [rotation](const Skeleton& person) {
    int own = -1;
    return person.getRotation(own) && own == rotation && !person.isNearEdge(g_StreamWidth, g_StreamHeight);
  });
  return upright;
}

/// The picture in which the network sees most people upright, all in the picture and best visible.
Moment bestMoment(const fs::path& tree, std::span<const int> rotations) {
  const fs::path file = tree / "simulator" / "demo" / "demo.truth.jsonl";
  std::ifstream truth(file);
  Moment best;
  std::pair<std::size_t, float> most{0, 0.0F};
  for (std::string line; std::getline(truth, line);) {
    const TruthPicture picture = parseTruth(line);
    for (const int rotation : rotations) {
      Skeletons upright = uprightAt(rotation, picture.skeletons);
      const std::pair<std::size_t, float> here{upright.size(), visibility(upright)};
      if (here <= most) continue;
      most = here;
      best = {picture.time, rotation, std::move(upright), picture.skeletons};
    }
  }
  if (best.upright.empty()) throw std::runtime_error(file.string() + ": shows nobody whom the network could find");
  return best;
}

std::string when(const Moment& moment) {
  return text("%.1f s into the demo", std::chrono::duration<double>(moment.time.time_since_epoch()).count());
}

std::string at(const Point& point) { return text("(%d, %d)", point.x, point.y); }

// ---- Trying it ----

void sayDuration(const LoadedNetwork& network) {
  say(text("One run takes %d ms here.", static_cast<int>(network.duration().count())));
}

/// Takes the skeleton that is this person out of the list.
std::optional<Skeleton> takeFound(const Skeleton& person, Skeletons& skeletons) {
  const auto distance = [&person](const Skeleton& skeleton) {
    return std::hypot(static_cast<float>(skeleton.superior.x - person.superior.x),
                      static_cast<float>(skeleton.superior.y - person.superior.y));
  };
  const auto nearest = std::ranges::min_element(skeletons, {}, distance);
  if (nearest == skeletons.end() || distance(*nearest) > kSamePerson * person.skeletonHeight) return std::nullopt;
  Skeleton found = *nearest;
  skeletons.erase(nearest);
  return found;
}

/// Says who of the people was found, and how many.
std::size_t sayFound(const Skeletons& people, Skeletons skeletons) {
  std::size_t count = 0;
  for (const Skeleton& person : people) {
    const std::string who = "  somebody with the shoulders at " + at(person.superior) + ": ";
    const auto found = takeFound(person, skeletons);
    count += found ? 1 : 0;
    say(who + (found ? text("found at %s, score %.2f", at(found->superior).c_str(), static_cast<double>(found->score))
                     : "not found"));
  }
  for (const Skeleton& extra : skeletons) {
    say("  nobody at " + at(extra.superior) +
        text(": a skeleton all the same, score %.2f", static_cast<double>(extra.score)));
  }
  return count;
}

std::string inWords(std::size_t found, std::size_t people) {
  if (found < people) return text("finds %zu of %zu people", found, people);
  return people == 1 ? "finds the person" : people == 2 ? "finds both people" : text("finds all %zu people", people);
}

/// Runs the pose network as a cycle of the program does.
Problems tryPose(const std::string& file, const fs::path& tree, LoadedNetwork& network) {
  const PoseSize size = sizeOf(network.input());
  const std::vector<int> rotations = size == portrait()    ? std::vector{90, 270}
                                     : size == landscape() ? std::vector{0, 180}
                                                           : std::vector{0};
  const Moment moment = bestMoment(tree, rotations);
  ticker_clock::setReplayTime(moment.time);
  const auto source = logged([] { return std::make_unique<VideoStreamSource>(g_StreamHeight, g_StreamWidth, 0); });
  if (Problems problems = network.run(*source, moment.rotation); !problems.empty()) return problems;
  sayDuration(network);

  const auto estimator = logged([&file] { return makeEstimator(file); });
  source->setDirty();
  if (!estimator->runModel(*source, moment.rotation)) throw AlreadyTold();
  const float bar = g_CalibrationParams.f_Sensitivity;
  const Skeletons skeletons =
      combineSkeletons(estimator->getSkeletons(), {}, {}, {}, bar, g_StreamWidth, g_StreamHeight);
  say(text("The picture %s, turned by %d degrees, has %zu upright (a person scores above %.2f):", when(moment).c_str(),
           moment.rotation, moment.upright.size(), static_cast<double>(bar)));
  const std::size_t found = sayFound(moment.upright, skeletons);
  if (found == 0) {
    return {text("finds nobody: %zu skeletons are persons, none where somebody is; the best pose scores %.2f",
                 skeletons.size(), static_cast<double>(estimator->getPoseScore(0)))};
  }
  const std::string verdict = inWords(found, moment.upright.size());
  if (found < moment.upright.size()) return {verdict};
  say("It " + verdict + ".");
  return {};
}

/// The camera, which nobody has opened yet, hangs upside down: the program asks the detector only about people who do.
void turnCamera() {
  const std::string file = variable("VELMOR_CAMERA");
  std::ifstream in(file);
  auto camera = nlohmann::json::parse(in);
  camera["rotation"] = 180;
  workstation::replaceFile(file, camera.dump(2) + "\n");
}

/// The person as the turned camera sees it, moved to the right by so many pixels.
Skeleton turned(const Skeleton& person, int right = 0) {
  Keypoints keypoints = person.keypoints;
  for (auto& [part, keypoint] : keypoints) {
    keypoint.point = {g_StreamWidth - 1 - keypoint.point.x + right, g_StreamHeight - 1 - keypoint.point.y};
  }
  return {keypoints, 180, person.score};
}

/// How far a place beside the person is that no one else's box comes near; the farther from all, the better.
int wayToEmptyPlace(const Skeleton& person, const Skeletons& everybody) {
  const BoundingBox& own = person.boundingBox;
  const int half = (own.bottomRight.y - own.topLeft.y) * 3 / 4;  // of the square that is cut out around it
  const int middle = (own.topLeft.x + own.bottomRight.x) / 2;
  std::pair<int, int> best{0, 0};  // gap, way
  for (int place = half; place <= g_StreamWidth - half; place += 10) {
    int gap = g_StreamWidth;
    for (const Skeleton& other : everybody) {
      gap = std::min(gap, std::max(other.boundingBox.topLeft.x - (place + half),
                                   (place - half) - other.boundingBox.bottomRight.x));
    }
    best = std::max(best, {gap, place - middle});
  }
  if (best.first <= 0) throw std::runtime_error("the demo has no place without people beside the person");
  return best.second;
}

struct Judgement {
  bool confirmed;
  float score;
};

Judgement judge(const Skeleton& skeleton) {
  Skeletons one{skeleton};
  if (!g_validator.validateAndRemove(one, g_StreamWidth, g_StreamHeight)) throw AlreadyTold();
  return {!one.empty(), std::max(g_validator.personScore(), 0.0F)};
}

/// Asks the validator about somebody and about an empty place.
Problems tryDetector(const std::string& file, const fs::path& tree, LoadedNetwork& network) {
  const PoseSize size = sizeOf(network.input());
  const Moment moment = bestMoment(tree, std::array{0});
  ticker_clock::setReplayTime(moment.time);
  g_InitialParams.s_mobilenetModelFileName = fs::path(file).filename();
  g_InitialParams.i_mobilenetModelWidth = static_cast<unsigned int>(size.width);
  g_InitialParams.i_mobilenetModelHeight = static_cast<unsigned int>(size.height);
  if (!logged([] { return g_validator.init(g_app_name); })) throw AlreadyTold();
  if (Problems problems = network.run(*g_videoHQStreamSource, 0); !problems.empty()) return problems;
  sayDuration(network);

  const Skeleton& person = moment.upright.front();
  const Judgement somebody = judge(turned(person));
  const Judgement nobody = judge(turned(person, -wayToEmptyPlace(person, moment.everybody)));
  g_videoHQStreamSource.reset();
  const auto bar = static_cast<double>(g_CalibrationParams.f_Sensitivity);
  say(text(
      "In the picture %s the square around somebody scores %.2f and an empty one %.2f (a person scores above %.2f).",
      when(moment).c_str(), static_cast<double>(somebody.score), static_cast<double>(nobody.score), bar));
  Problems problems;
  if (!somebody.confirmed) problems.emplace_back("does not see the person in the square");
  if (nobody.confirmed) problems.emplace_back("sees a person in an empty square");
  if (problems.empty()) say("It confirms the person, and nobody where nobody is.");
  return problems;
}

// ---- What next ----

/// How the program comes to use the file; `wanted` are the parameters that name it and `known` what they are.
void sayWhatNext(const fs::path& file, const fs::path& tree, const std::map<std::string, std::string>& wanted,
                 const std::map<std::string, std::string>& known) {
  const fs::path models = fs::canonical(tree / "models");
  const bool is_there = fs::canonical(file).parent_path() == models;
  if (is_there && wanted == known) {
    say("It fits, and the program uses it: " + wanted.begin()->first + " in package/manifest.json names it.");
    return;
  }
  say("It fits. To have the program use it:");
  if (!is_there) say("  copy " + file.filename().string() + " and " + file.filename().string() + ".json into models/");
  if (wanted == known) return;
  say("  add to the settings file of your video or camera, beside its beds and floor points: {\"parameters\": " +
      nlohmann::json(wanted).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "}");
  say("  ./run --source VIDEO --settings SETTINGS.json");
}

const char* parameterFor(PoseSize size) {
  return size == portrait() ? "PortraitModelFileName" : "LandscapeModelFileName";
}

Problems checkPose(const std::string& file, const fs::path& tree, LoadedNetwork& network, const ModelSidecar& sidecar) {
  Problems problems = poseProblems(network, sidecar);
  if (!problems.empty()) return problems;
  const PoseSize size = sizeOf(network.input());
  say("It is a pose network for pictures of " + nameOf(size) +
      "; its outputs and their bytes are those that are read.");
  if (size == scaled()) say("Pictures are scaled to that size and never turned: it finds nobody who lies across.");
  problems = tryPose(file, tree, network);
  if (problems.empty()) {
    const std::string in_use =
        size == portrait() ? g_InitialParams.s_PortraitModelFileName : g_InitialParams.s_LandscapeModelFileName;
    sayWhatNext(file, tree, {{parameterFor(size), fs::path(file).filename()}}, {{parameterFor(size), in_use}});
  }
  return problems;
}

Problems checkDetector(const std::string& file, const fs::path& tree, LoadedNetwork& network) {
  Problems problems = detectorProblems(network);
  if (!problems.empty()) return problems;
  const PoseSize size = sizeOf(network.input());
  say("It is a person detector for squares of " + nameOf(size) + "; its outputs are those that are read.");
  const auto parameters = [](const std::string& name, auto width, auto height) {
    return std::map<std::string, std::string>{{"mobilenetModelFileName", name},
                                              {"mobilenetModelWidth", std::to_string(width)},
                                              {"mobilenetModelHeight", std::to_string(height)}};
  };
  const auto in_use = parameters(g_InitialParams.s_mobilenetModelFileName, g_InitialParams.i_mobilenetModelWidth,
                                 g_InitialParams.i_mobilenetModelHeight);
  problems = tryDetector(file, tree, network);
  if (problems.empty()) {
    sayWhatNext(file, tree, parameters(fs::path(file).filename(), size.width, size.height), in_use);
  }
  return problems;
}

void sayAdapter(const ModelSidecar& sidecar) {
  std::string cells;
  workstation::AdapterSettings adapter = sidecar.adapter;
  workstation::chooseLooks(adapter, workstation::eyesOfRuns());
  for (const workstation::AdapterScale& scale : adapter.scales) {
    cells.append(cells.empty() ? "" : " and ").append(text("%g", static_cast<double>(scale.cell)));
  }
  if (!cells.empty())
    say("An adapter makes the program's tensors of its heads, which have cells of " + cells + " pixels.");
}

Problems check(const std::string& file, const fs::path& tree) {
  const auto content = workstation::readFile(file, workstation::kMaxModelBytes);
  if (!content) return {"there is no such file"};
  if (content->empty()) return {"is empty"};
  const ModelSidecar sidecar = workstation::readModelSidecar(file, *content);
  if (sidecar.outputs.size() == Validator::kOutputs.size()) turnCamera();
  init_parameter_controller();
  init_stream_size();
  LoadedNetwork network(file);
  say("The network can be read, and its sidecar describes it.");
  sayAdapter(sidecar);
  if (network.outputs().size() == kPoseOutputs.size()) return checkPose(file, tree, network, sidecar);
  if (network.outputs().size() == Validator::kOutputs.size()) return checkDetector(file, tree, network);
  return {text("has %zu outputs; a pose network has ", network.outputs().size()) + listOf(kPoseOutputs) +
          ", a person detector " + listOf(Validator::kOutputs)};
}

}  // namespace

int main() {
  ::alarm(kPatience_s);
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS, LOG_USER);
  ticker_clock::setReplayTime(TimeStamp());
  try {
    const std::string file = variable("VELMOR_MODEL");
    const Problems problems = check(file, variable("VELMOR_SOURCE_DIR"));
    std::fflush(stdout);
    for (const std::string& problem : problems) std::fprintf(stderr, "%s: %s\n", file.c_str(), problem.c_str());
    return problems.empty() ? 0 : kDoesNotFit;
  } catch (const AlreadyTold&) {
    return kDoesNotFit;
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", error.what());
    return kDoesNotFit;
  }
}
