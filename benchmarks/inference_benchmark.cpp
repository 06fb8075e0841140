// What a run of the pose model costs through the inference service and on its engine, in floats, short floats and
// bytes, beside the same engine with AVX2 only, OpenCV's dnn module, the usual way into that (blobFromImage makes a
// planar float picture of the packed bytes), and plain loops, which tell what the numbers should be ("difference": the
// largest, of a largest value of "of"). VELMOR_EYES says which looks it makes, as in a run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <larod.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <opencv2/dnn.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/plain_network.h"
#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/onnx/asked_part.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/eyes.h"
#include "platform/workstation/inference/model_sidecar.h"
#include "pose/mmfile.h"

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::array<int, 6> kOutputBytes = {63342, 126684, 238464, 3726, 89424, 126684};
const std::string kModel = MODEL_DIRECTORY "/pose_landscape.onnx";

cv::Mat noise(int rows, int columns, int type) {
  cv::Mat picture(rows, columns, type);
  cv::RNG random(7);
  random.fill(picture, cv::RNG::UNIFORM, 0, 255);
  return picture;
}

std::vector<cv::Mat> forward(cv::dnn::Net& network, const cv::Mat& blob, const std::vector<std::string>& names) {
  std::vector<cv::Mat> outputs;
  network.setInput(blob);
  network.forward(outputs, names);
  return outputs;
}

/// The pose network with some of its looks, and a picture for it.
struct Task {
  using Choose = std::function<void(workstation::AdapterSettings&)>;
  explicit Task(const Choose& choose) {
    std::ifstream stream(kModel, std::ios::binary);
    file.assign(std::istreambuf_iterator<char>(stream), {});
    workstation::ModelSidecar sidecar = workstation::readModelSidecar(kModel, file);
    choose(sidecar.adapter);
    for (const auto& scale : sidecar.adapter.scales) {
      network.outputs.insert(network.outputs.end(), scale.heads.begin(), scale.heads.end());
    }
    network.onnx = {reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
    network.ranges = sidecar.ranges;
    asked.emplace(network);
    network = asked->task();
    network.height = kHeight;
    network.packed_width = kWidth * 3;
  }
  std::string file;
  workstation::NetworkTask network;
  std::optional<workstation::AskedTask> asked;  ///< what `network` points into
  cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
};

const Task& task() {
  static const Task the_task([](auto& adapter) { workstation::chooseLooks(adapter, workstation::eyesOfRuns()); });
  return the_task;
}

using MakeEngine = std::unique_ptr<workstation::Engine> (*)(const workstation::NetworkTask&);

/// Bytes in memory to maps in memory; one thread, or as VELMOR_THREADS says.
void engine(benchmark::State& state, MakeEngine make) {
  const auto made = make(task().network);
  while (state.KeepRunning()) benchmark::DoNotOptimize(made->run(task().picture.data));
}
BENCHMARK_CAPTURE(engine, oneDnn, workstation::makeOneDnnEngine)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(engine, openCv, workstation::makeOpenCvEngine)->Unit(benchmark::kMillisecond)->UseRealTime();

std::unique_ptr<workstation::Engine> oneDnnIn(workstation::Precision precision) {
  workstation::NetworkTask given = task().network;
  given.precision = precision;
  return workstation::makeOneDnnEngine(given);
}

/// Nothing is measured where this processor, or the sidecar, does not know these numbers.
void engineIn(benchmark::State& state, workstation::Precision precision) {
  if (!workstation::multiplies(precision)) return state.SkipWithError("this processor has no instructions for it");
  try {
    const auto made = oneDnnIn(precision);
    while (state.KeepRunning()) benchmark::DoNotOptimize(made->run(task().picture.data));
  } catch (const std::exception& error) {
    state.SkipWithError(error.what());
  }
}
BENCHMARK_CAPTURE(engineIn, bf16, workstation::Precision::kShortFloats)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(engineIn, int8, workstation::Precision::kBytes)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Of the looks that the network's file has, each alone.
void look(benchmark::State& state, std::size_t place, workstation::Precision precision) {
  Task alone([place](auto& adapter) { adapter.scales = {adapter.scales.at(place)}; });
  try {
    workstation::NetworkTask given = alone.network;
    given.precision = precision;
    const auto made = workstation::makeOneDnnEngine(given);
    while (state.KeepRunning()) benchmark::DoNotOptimize(made->run(alone.picture.data));
  } catch (const std::exception& error) {
    state.SkipWithError(error.what());
  }
}

const bool looks_are_registered = [] {
  std::vector<std::string> heads;
  const Task all([&heads](const auto& adapter) {
    for (const auto& scale : adapter.scales) heads.push_back(scale.heads.front());
  });
  for (std::size_t place = 0; place < heads.size(); ++place) {
    const std::string name = "look/" + heads[place].substr(0, heads[place].find('/')) + "/";
    for (const auto precision : {workstation::Precision::kFloats, workstation::Precision::kBytes}) {
      const auto run = [=](benchmark::State& state) { look(state, place, precision); };
      benchmark::RegisterBenchmark((name + nameOf(precision)).c_str(), run)->Unit(benchmark::kMillisecond);
    }
  }
  return !heads.empty();
}();

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The engine in a process of its own, since oneDNN asks once which instructions it may use.
class CappedEngine {
 public:
  CappedEngine(const char* instructions, workstation::Precision precision) {
    if (pipe(m_ask.data()) != 0 || pipe(m_answer.data()) != 0) throw std::runtime_error("no pipe");
    m_child = fork();
    if (m_child == 0) serve(instructions, precision);
    close(m_ask[0]);
    close(m_answer[1]);
    signal(SIGPIPE, SIG_IGN);  // of a child that has ended, which is told
  }
  ~CappedEngine() {
    close(m_ask[1]);
    close(m_answer[0]);
    kill(m_child, SIGTERM);
    waitpid(m_child, nullptr, 0);
  }
  CappedEngine(const CappedEngine&) = delete;
  CappedEngine& operator=(const CappedEngine&) = delete;

  /// Seconds of processor time of one run.
  double run() {
    char asked = 0;
    double seconds = 0;
    if (write(m_ask[1], &asked, 1) != 1 || read(m_answer[0], &seconds, sizeof seconds) != sizeof seconds) {
      throw std::runtime_error("the capped engine has ended");
    }
    return seconds;
  }

 private:
  [[noreturn]] void serve(const char* instructions, workstation::Precision precision) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(m_answer[0]);
    close(m_ask[1]);
    setenv("ONEDNN_MAX_CPU_ISA", instructions, 1);
    try {
      const auto made = oneDnnIn(precision);
      for (char asked = 0; read(m_ask[0], &asked, 1) == 1;) {
        const double begin = processorSeconds();
        benchmark::DoNotOptimize(made->run(task().picture.data));
        const double seconds = processorSeconds() - begin;
        if (write(m_answer[1], &seconds, sizeof seconds) != sizeof seconds) break;
      }
    } catch (const std::exception&) {
      _exit(1);
    }
    _exit(0);
  }

  std::array<int, 2> m_ask{}, m_answer{};
  pid_t m_child = -1;
};

/// Forked before anything here has used oneDNN.
CappedEngine floats_with_avx2("AVX2", workstation::Precision::kFloats);
CappedEngine bytes_with_avx2("AVX2", workstation::Precision::kBytes);

void oneDnnWithAvx2Only(benchmark::State& state, CappedEngine* engine) {
  try {
    engine->run();
    while (state.KeepRunning()) state.SetIterationTime(engine->run());
  } catch (const std::exception& error) {
    state.SkipWithError(error.what());
  }
}
BENCHMARK_CAPTURE(oneDnnWithAvx2Only, fp32, &floats_with_avx2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK_CAPTURE(oneDnnWithAvx2Only, int8, &bytes_with_avx2)->Unit(benchmark::kMillisecond)->UseManualTime();

/// Seconds a run: once is enough.
void plainLoops(benchmark::State& state) {
  std::vector<std::vector<float>> maps;
  while (state.KeepRunning()) maps = runPlainly(task().network, task().picture.data);
  const auto engine = workstation::makeOneDnnEngine(task().network);
  const auto made = engine->run(task().picture.data);
  float difference = 0;
  float largest = 0;
  for (std::size_t output = 0; output < maps.size(); ++output) {
    for (std::size_t i = 0; i < maps[output].size(); ++i) {
      difference = std::max(difference, std::abs(made[output].values[i] - maps[output][i]));
      largest = std::max(largest, std::abs(maps[output][i]));
    }
  }
  state.counters["difference"] = static_cast<double>(difference);
  state.counters["of"] = static_cast<double>(largest);
}
BENCHMARK(plainLoops)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

/// OpenCV as it comes, on all cores; its input is ready as floats, and nothing is done with its output.
void openCvOnAllCores(benchmark::State& state) {
  const auto& onnx = task().network.onnx;
  cv::dnn::Net network = cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(onnx.data()), onnx.size());
  const std::array<int, 4> shape = {1, 1, kHeight, kWidth * 3};
  cv::Mat blob(static_cast<int>(shape.size()), shape.data(), CV_32F);
  noise(kHeight, kWidth * 3, CV_32F).reshape(1, 4, shape.data()).copyTo(blob);
  cv::setNumThreads(-1);
  while (state.KeepRunning()) benchmark::DoNotOptimize(forward(network, blob, task().network.outputs));
}
BENCHMARK(openCvOnAllCores)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Only the step that a planar input would need before the network.
void blobFromPackedPicture(benchmark::State& state) {
  const cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
  cv::Mat blob;
  while (state.KeepRunning()) cv::dnn::blobFromImage(picture, blob, 1.0 / 255);
}
BENCHMARK(blobFromPackedPicture)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Bytes in a file to quantized tensors in files, as the program runs it.
class Service {
 public:
  Service() : m_file(open(kModel.c_str(), O_RDONLY | O_CLOEXEC)) {
    check(larodConnect(&m_connection, &m_error));
    m_model = larodLoadModel(m_connection, m_file, LAROD_CHIP_CPU, LAROD_ACCESS_PUBLIC, "pose", nullptr, &m_error);
    check(m_model != nullptr);
    m_inputs = larodCreateModelInputs(m_model, &m_inputCount, &m_error);
    m_outputs = larodCreateModelOutputs(m_model, &m_outputCount, &m_error);
    check(m_inputs != nullptr && m_outputs != nullptr && m_outputCount == kOutputBytes.size());
    const cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
    std::copy_n(picture.data, kWidth * kHeight * 3, static_cast<uchar*>(m_input.getBuffer()));
    check(larodSetTensorFd(m_inputs[0], m_input.getFileDescriptor(), &m_error));
    for (std::size_t i = 0; i < m_outputCount; ++i) {
      m_files.push_back(std::make_unique<MemoryMappedFile>("/tmp/benchmark-XXXXXX", kOutputBytes[i]));
      check(larodSetTensorFd(m_outputs[i], m_files[i]->getFileDescriptor(), &m_error));
    }
    m_request = larodCreateJobRequest(m_model, m_inputs, m_inputCount, m_outputs, m_outputCount, nullptr, &m_error);
    check(m_request != nullptr);
  }

  ~Service() {
    larodDestroyJobRequest(&m_request);
    larodDestroyTensors(m_connection, &m_inputs, m_inputCount, &m_error);
    larodDestroyTensors(m_connection, &m_outputs, m_outputCount, &m_error);
    larodDestroyModel(&m_model);
    larodDisconnect(&m_connection, &m_error);
    close(m_file);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void run() {
    for (const auto& file : m_files) file->rewind();
    check(larodRunJob(m_connection, m_request, &m_error));
  }

 private:
  void check(bool good) const {
    if (!good) throw std::runtime_error(m_error != nullptr ? m_error->msg : "the model does not fit this benchmark");
  }

  int m_file;
  larodConnection* m_connection = nullptr;
  larodModel* m_model = nullptr;
  larodTensor** m_inputs = nullptr;
  larodTensor** m_outputs = nullptr;
  larodJobRequest* m_request = nullptr;
  larodError* m_error = nullptr;
  std::size_t m_inputCount = 0;
  std::size_t m_outputCount = 0;
  MemoryMappedFile m_input{"/tmp/benchmark-XXXXXX", kWidth* kHeight * 3};
  std::vector<std::unique_ptr<MemoryMappedFile>> m_files;
};

void inferenceService(benchmark::State& state) {
  Service service;
  while (state.KeepRunning()) service.run();
}
BENCHMARK(inferenceService)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
