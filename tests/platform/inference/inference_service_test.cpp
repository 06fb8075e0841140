#include <fcntl.h>
#include <gtest/gtest.h>
#include <larod.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "platform/support/owners.h"
#include "platform/workstation/inference/tensor_quantizer.h"
#include "tests/platform/inference/small_networks.h"
#include "tests/platform/state_folder.h"

namespace {

using workstation::quantizeChannelsLast;

constexpr const char* kPicture = R"({"name": "picture", "shape": [1, 4, 6, 3], "type": "uint8"})";
constexpr const char* kHeatmaps =
    R"({"name": "heat", "layer": "heatmaps", "shape": [1, 2, 3, 2], "type": "uint8", "scale": 2, "zero_point": 10})";
constexpr const char* kOffsets =
    R"({"name": "off", "layer": "offsets", "shape": [1, 2, 3, 1], "type": "uint8", "scale": 4, "zero_point": 25})";
constexpr const char* kUnread =
    R"({"name": "unread", "layer": "constant", "shape": [1, 5], "type": "uint8", "scale": 1, "zero_point": 77})";

std::string sidecar(const std::string& outputs, const std::string& input = kPicture) {
  return R"({"input": )" + input + R"(, "outputs": [)" + outputs + "]}";
}

std::string poseSidecar() { return sidecar(std::string(kUnread) + "," + kHeatmaps + "," + kOffsets); }

std::string floatOutput(const std::string& name, const std::string& shape) {
  return R"({"name": ")" + name + R"(", "layer": ")" + name + R"(", "shape": )" + shape + R"(, "type": "float32"})";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

/// The description of exactly this network.
std::string withSum(const std::string& description, const std::string& network) {
  const GLibPtr<gchar> sum(
      g_compute_checksum_for_string(G_CHECKSUM_SHA256, network.data(), static_cast<gssize>(network.size())));
  return description.empty() ? "" : replaced(description, "{", std::string("{\"sha256\": \"") + sum.get() + "\", ");
}

/// Models lie in a folder of their own with the sidecar that a test gives them.
class InferenceService : public testing::Test {
 protected:
  InferenceService() { EXPECT_TRUE(larodConnect(&m_connection, nullptr)); }
  ~InferenceService() override {
    larodDestroyModel(&m_model);
    larodClearError(&m_error);
    EXPECT_TRUE(larodDisconnect(&m_connection, nullptr));
  }

  larodModel* load(const std::string& network, const std::string& description, larodChip chip = LAROD_CHIP_CPU) {
    m_folder.write("m.onnx", network);
    m_folder.write("m.onnx.json", withSum(description, network));
    return loadAsItIs(chip);
  }
  larodModel* loadAsItIs(larodChip chip = LAROD_CHIP_CPU) {
    const int fd = ::open((m_folder / "m.onnx").c_str(), O_RDONLY);
    m_model = larodLoadModel(m_connection, fd, chip, LAROD_ACCESS_PUBLIC, "m", nullptr, &m_error);
    ::close(fd);
    return m_model;
  }

  static std::string network(const std::string& name) {
    std::ifstream file(TEST_DATA "/" + name + ".onnx", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  int file(const std::string& name, const std::string& content = "") {
    m_folder.write(name, content);
    return ::open((m_folder / name).c_str(), O_RDWR);
  }

  StateFolder m_folder;
  larodConnection* m_connection = nullptr;
  larodModel* m_model = nullptr;
  larodError* m_error = nullptr;
};

/// A loaded model with a file behind every tensor: "in", "out0", "out1", ...
class Job : public InferenceService {
 protected:
  void bind(const std::string& picture) {
    ASSERT_NE(m_model, nullptr) << m_error->msg;
    m_inputs = larodCreateModelInputs(m_model, &m_input_count, nullptr);
    m_outputs = larodCreateModelOutputs(m_model, &m_output_count, nullptr);
    m_files.push_back(file("in", picture));
    ASSERT_TRUE(larodSetTensorFd(m_inputs[0], m_files.back(), nullptr));
    for (size_t i = 0; i < m_output_count; ++i) {
      m_files.push_back(file("out" + std::to_string(i)));
      ASSERT_TRUE(larodSetTensorFd(m_outputs[i], m_files.back(), nullptr));
    }
    m_request = larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, m_output_count, nullptr, &m_error);
    ASSERT_NE(m_request, nullptr) << m_error->msg;
  }
  ~Job() override { release(); }

  /// Another model may be loaded afterwards.
  void release() {
    larodDestroyJobRequest(&m_request);
    larodDestroyTensors(m_connection, &m_inputs, m_input_count, nullptr);
    larodDestroyTensors(m_connection, &m_outputs, m_output_count, nullptr);
    larodDestroyModel(&m_model);
    for (const int fd : m_files) ::close(fd);
    m_files.clear();
  }

  std::vector<int> bytes(const std::string& name) {
    const std::string content = m_folder.read(name);
    return {reinterpret_cast<const uint8_t*>(content.data()),
            reinterpret_cast<const uint8_t*>(content.data()) + content.size()};
  }
  std::vector<float> floats(const std::string& name) {
    const std::string content = m_folder.read(name);
    std::vector<float> values(content.size() / sizeof(float));
    std::copy(content.begin(), content.end(), reinterpret_cast<char*>(values.data()));
    return values;
  }

  larodTensor **m_inputs = nullptr, **m_outputs = nullptr;
  size_t m_input_count = 0, m_output_count = 0;
  larodJobRequest* m_request = nullptr;
  std::vector<int> m_files;
};

/// A 4x6 picture whose bytes count up: the byte at (row, column, colour) is (row * 6 + column) * 3 + colour.
std::string countingPicture() {
  std::string picture(72, '\0');
  for (size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<char>(i);
  return picture;
}

class PoseJob : public Job, public testing::WithParamInterface<const char*> {};

TEST_P(PoseJob, WritesQuantizedMapsChannelLastInTheSidecarsOrder) {
  load(network(GetParam()), poseSidecar());
  bind(countingPicture());
  const larodTensorDims* dims = larodGetTensorDims(m_outputs[1], nullptr);
  EXPECT_EQ(std::vector<size_t>(dims->dims, dims->dims + dims->len), (std::vector<size_t>{1, 2, 3, 2}));
  EXPECT_EQ(larodGetTensorDims(m_inputs[0], nullptr)->dims[2], 6U);
  EXPECT_STREQ(larodGetTensorName(m_outputs[2], nullptr), "off");
  EXPECT_EQ(larodGetTensorDataType(m_outputs[0], nullptr), LAROD_TENSOR_DATA_TYPE_UINT8);
  EXPECT_EQ(larodGetTensorFd(m_inputs[0], nullptr), m_files[0]);
  size_t size = 0;
  EXPECT_TRUE(larodGetTensorFdSize(m_outputs[1], &size, nullptr) && size == 12);
  for (int run = 0; run < 2; ++run) ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error)) << m_error->msg;
  // Cells begin at columns 0, 2, 4 of rows 0 and 2: red 0, 6, 12, 36, 42, 48 and green one more; the sum of the blues
  // is 4 * (red + 2) + 3 + 18 + 21, less 100. Red halves come with .0, green halves with .5, which rounds up.
  const std::vector<int> heat = {10, 10, 13, 7, 16, 4, 28, 0, 31, 0, 34, 0};
  const std::vector<int> offsets = {13, 19, 25, 49, 55, 61};
  const auto twice = [](std::vector<int> once) {
    once.insert(once.end(), once.begin(), once.begin() + static_cast<long>(once.size()));
    return once;
  };
  EXPECT_EQ(bytes("out0"), std::vector<int>(10, 77));
  EXPECT_EQ(bytes("out1"), twice(heat)) << "the second run goes on at the descriptor's position";
  EXPECT_EQ(bytes("out2"), twice(offsets));
}
INSTANTIATE_TEST_SUITE_P(Networks, PoseJob, testing::Values("tiny_pose", "tiny_branches"));

TEST_F(Job, FollowsThePictureAndWritesFloatsForTheDetector) {
  load(network("tiny_detector"), sidecar(floatOutput("scores", "[1, 6]") + "," + floatOutput("locations", "[1, 6, 4]") +
                                         "," + floatOutput("count", "[1]") + "," + floatOutput("classes", "[1, 6]")));
  bind(std::string(72, '\x09'));
  ASSERT_TRUE(larodRunJob(m_connection, m_request, nullptr));
  const std::string bright(72, '\xff');
  ASSERT_EQ(::pwrite(m_files[0], bright.data(), bright.size(), 0), 72);
  for (const int fd : m_files) ::lseek(fd, 0, SEEK_SET);
  ASSERT_TRUE(larodRunJob(m_connection, m_request, nullptr));
  EXPECT_EQ(floats("out0"), std::vector<float>(6, 255));
  std::vector<float> locations = floats("out1");
  ASSERT_EQ(locations.size(), 24U);
  locations.erase(locations.begin(), locations.begin() + 20);
  EXPECT_EQ(locations, (std::vector<float>{255, -255, 1020, 7}));
  EXPECT_EQ(floats("out2"), std::vector<float>{3});
  EXPECT_EQ(floats("out3"), std::vector<float>(6, 3));
}

constexpr const char* kAdapter = R"("adapter": {"name": "movenet_multipose",
  "scales": [{"cell": 2, "heads": ["center", "regression", "heat", "offset"]}], "confidence": {"gain": 1, "bias": 0},
  "rules": {"center_threshold": 0.15, "reach": 0.3, "twin_distance": 0.08, "same_distance": 0.2, "most_people": 10}}, )";

std::string adaptedPose() {
  std::string outputs;
  for (const int channels : {17, 34, 64}) {
    outputs += R"({"name": "t", "layer": "adapter", "shape": [1, 1, 1, )" + std::to_string(channels) +
               R"(], "type": "uint8", "scale": 0.1, "zero_point": 128},)";
  }
  return replaced(sidecar(outputs + kUnread), "{", std::string("{") + kAdapter);
}

TEST_F(Job, AnAdapterFillsTheTensorsFromTheHeads) {
  load(network("tiny_heads"), adaptedPose());
  std::string picture(72, '\0');
  picture[2 * 18 + 4 * 3] = '\x70';  // red in the cell of row 1 and column 2
  bind(picture);
  ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error)) << m_error->msg;
  EXPECT_EQ(bytes("out0"), std::vector<int>(17, 137)) << "a logit of 2, seen a third of a cell off";
  std::vector<int> offsets(17, 128 + 20);  // 2 pixels down and 4 to the right
  offsets.resize(34, 128 + 40);
  EXPECT_EQ(bytes("out1"), offsets);
  EXPECT_EQ(bytes("out3"), std::vector<int>(5, 77));
  ASSERT_EQ(::pwrite(m_files[0], std::string(72, '\0').data(), 72, 0), 72);
  ::lseek(m_files[1], 0, SEEK_SET);
  ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error));
  EXPECT_EQ(bytes("out0"), std::vector<int>(17, 0)) << "nobody is left over";
  ASSERT_EQ(::pwrite(m_files[0], std::string(72, '\x09').data(), 72, 0), 72);
  EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error)) << "nobody is overlooked without a word";
  EXPECT_STREQ(m_error->msg, "the network failed: its output \"regression\" is not finite");
}

/// By cells of 2.5 pixels somebody's joints lie further down than by cells of 2; where two looks see them apart, the
/// nearer ones are told.
TEST_F(Job, LooksWithTheEyesThatARunHas) {
  struct Seen {
    std::string log;
    int pixels;  // tenths
  };
  const auto seenWith = [this](const char* eyes, const std::string& description) {
    ::setenv("VELMOR_EYES", eyes, 1);
    Seen seen{logOf([&] { load(network("tiny_heads"), description); }), 0};
    ::unsetenv("VELMOR_EYES");
    std::string picture(72, '\0');
    picture[2 * 18 + 4 * 3] = '\x70';
    bind(picture);
    EXPECT_TRUE(larodRunJob(m_connection, m_request, &m_error));
    seen.pixels = bytes("out1")[0] - 128;
    release();
    return seen;
  };
  const std::string heads = R"("heads": ["center", "regression", "heat", "offset"])";
  const std::string two = replaced(adaptedPose(), "[{\"cell\": 2,", "[{\"cell\": 2.5, " + heads + "}, {\"cell\": 2,");
  const std::string described = replaced(two, "\"rules\"", R"("eyes": {"fast": [0], "sharp": [1]}, "rules")");
  for (const auto& [eyes, description, pixels] :
       {std::tuple{"sharp", described, 20}, {"fast", described, 25}, {"", described, 25}, {"fast", two, 20}}) {
    const Seen seen = seenWith(eyes, description);
    EXPECT_EQ(seen.pixels, pixels) << eyes;
    EXPECT_EQ(seen.log.find(" eyes"), std::string::npos) << seen.log;
  }
  const Seen fast = seenWith("sharp", replaced(described, ", \"sharp\": [1]", "")), all = seenWith("sharp", two);
  for (const std::string& log : {fast.log, all.log}) {
    EXPECT_NE(log.find("m.onnx: has no looks for sharp eyes; it makes its usual ones\n"), std::string::npos) << log;
  }
  EXPECT_EQ(fast.pixels, 25);
  EXPECT_EQ(all.pixels, 20);
}

TEST_F(Job, FailsWithALineWhenFilesOrModelAreGone) {
  load(network("tiny_pose"), poseSidecar());
  bind(countingPicture().substr(1));
  EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error));
  EXPECT_STREQ(m_error->msg, "the input tensor's file holds less than 72 bytes");
  larodClearError(&m_error);
  EXPECT_EQ(m_error, nullptr);
  EXPECT_FALSE(larodSetTensorFd(m_outputs[0], 9999, nullptr));
  EXPECT_EQ(larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 2, nullptr, nullptr), nullptr);
  std::swap(m_outputs[1], m_outputs[2]);
  EXPECT_EQ(larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 3, nullptr, nullptr), nullptr);
  EXPECT_TRUE(larodDeleteModel(m_connection, m_model, nullptr));
  EXPECT_FALSE(larodDeleteModel(m_connection, m_model, nullptr));
  larodDestroyModel(&m_model);
  EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error));
  EXPECT_EQ(m_error->code, LAROD_ERROR_MODEL_NOT_FOUND);
}

TEST_F(InferenceService, AModelThatIsRefusedIsOneClearLine) {
  const std::string whole = network("tiny_pose"), heads = network("tiny_heads");
  const auto with = [](const char* from, const char* to) { return replaced(poseSidecar(), from, to); };
  const auto withEyes = [](const std::string& eyes) {
    return replaced(adaptedPose(), "\"rules\"", "\"eyes\": " + eyes + ", \"rules\"");
  };
  const std::tuple<std::string, std::string, const char*> mistakes[] = {
      {"", poseSidecar(), ": is empty"},
      {whole.substr(0, whole.size() / 2), poseSidecar(), "not an ONNX"},
      {whole, "", ".json: is not a JSON object"},
      {whole, with("\"heatmaps\"", "\"hands\""), "no output \"hands\""},
      {whole, with("[1, 4, 6, 3]", "[1, 1, 6, 3]"), "does not run"},
      {whole, with("[1, 4, 6, 3]", "[1, 4, 6, 4]"), "input: must be of type \"uint8\" and shape"},
      {whole, with("[1, 2, 3, 2]", "[1, 3, 2, 2]"), "\"heatmaps\" has not the"},
      {whole, with("[1, 2, 3, 1]", "[1, 2, 3, 3]"), "\"offsets\" has not"},
      {whole, with("[1, 5]", "[99999999, 99999999]"), "outputs[0].shape: must hold"},
      {whole, with("[1, 5]", "[1, -5]"), "outputs[0].shape: must hold"},
      {whole, with("\"scale\": 4", "\"scale\": 0"), "outputs[2].scale: must"},
      {whole, with("25", "256"), "outputs[2].zero_point: must"},
      {whole, with("uint8\", \"scale\": 2", "int8\", \"scale\": 2"), "outputs[1].type"},
      {whole, sidecar(""), "outputs: must be a list"},
      {whole, sidecar(replaced(floatOutput("x", "[1]"), "\"layer\": \"x\"", "\"layer\": \"constant\"")),
       "outputs[0].layer"},
      {network("tiny_nan"), sidecar(kOffsets), "\"offsets\" is not finite"},
      {whole, with("{", "{\"ranges\": [], "), "ranges: must be an object"},
      {whole, with("{", "{\"ranges\": {\"a\": null, \"x\": [0, 0]}, "), "ranges[\"x\"]: must be null, or two numbers"},
      {whole, with("{", "{\"ranges\": {\"x\": [0, -1]}, "), "ranges[\"x\"]: must be null"},
      {whole, with("{", "{\"ranges\": {\"x\": [1, 2]}, "), "ranges[\"x\"]: must be null"},
      {whole, with("{", "{\"ranges\": {\"x\": [0, 1e9]}, "), "ranges[\"x\"]: must be null"},
      {whole, with("{", "{\"ranges\": {\"x\": [0, NaN]}, "), ".json: is not a JSON object"},
      {whole, with("{", "{\"ranges\": {\"x\": [0, \"1\"]}, "), "ranges[\"x\"]: must be null"},
      {heads, replaced(adaptedPose(), "movenet", "other"), "adapter: must be an object whose \"name\""},
      {heads, replaced(adaptedPose(), "\"adapter\": {", "\"was\": {"), "adapter: must be an object"},
      {heads, replaced(adaptedPose(), "[\"center\", ", "["), "\"heads\" must name four"},
      {heads, replaced(adaptedPose(), "\"cell\": 2", "\"cell\": 0"), "\"cell\" must be a number from 1"},
      {heads, replaced(adaptedPose(), "\"cell\": 2", "\"cell\": 1"), "have not as many cells"},
      {heads, replaced(adaptedPose(), "1, 1, 34]", "2, 1, 34]"), "outputs: an adapter fills three"},
      {heads, withEyes("[0]"), "adapter.eyes: must say of \"fast\" and \"sharp\" eyes"},
      {heads, withEyes("{\"keen\": [0]}"), "adapter.eyes: must say"},
      {heads, withEyes("{\"fast\": []}"), "adapter.eyes: must say"},
      {heads, withEyes("{\"fast\": [1]}"), "by their places from 0 to 0"},
      {heads, withEyes("{\"fast\": [0, 0]}"), "adapter.eyes: must say"},
      {heads, withEyes("{\"fast\": [-1]}"), "adapter.eyes: must say"},
      {heads, withEyes("{\"fast\": 0}"), "adapter.eyes: must say"},
      {heads, replaced(adaptedPose(), "0.15", "\"x\""), "\"center_threshold\" must"},
      {heads, replaced(adaptedPose(), "1, 34]", "1, 33]"), "outputs: an adapter fills three"},
      {heads, replaced(adaptedPose(), "\"heat\", \"offset\"", "\"offset\", \"heat\""), "\"offset\" is not a head"}};
  for (const auto& [bytes, description, why] : mistakes) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(load(bytes, description), nullptr) << why;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_NE(m_error, nullptr);
    const std::string message = m_error->msg;
    EXPECT_EQ(message.rfind((m_folder / "m.onnx").string(), 0), 0U) << message;
    EXPECT_NE(message.find(why), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos);
    larodClearError(&m_error);
  }
  EXPECT_EQ(load(whole, poseSidecar(), LAROD_CHIP_INVALID), nullptr);
  EXPECT_EQ(m_error->code, LAROD_ERROR_INVALID_CHIP_ID);
}

/// One bit of a weight, which the network runs with as before.
TEST_F(InferenceService, RefusesAnotherNetworkThanTheOneDescribed) {
  std::string other = network("tiny_pose");
  m_folder.write("m.onnx.json", withSum(poseSidecar(), other));
  const std::string weight("\0\0\x80\x3f", 4);
  other[other.find(weight) + 2] = '\x40';
  m_folder.write("m.onnx", other);
  EXPECT_EQ(loadAsItIs(), nullptr);
  EXPECT_EQ(m_error->msg, (m_folder / "m.onnx").string() +
                              ": is damaged, or another network than its sidecar (sha256) describes; put the right "
                              "file back, or, if this is the right one, what sha256sum says into its sidecar");
  larodClearError(&m_error);
  EXPECT_NE(load(other, poseSidecar()), nullptr) << "it runs";
  larodDestroyModel(&m_model);
  m_folder.write("m.onnx.json", poseSidecar());
  EXPECT_EQ(loadAsItIs(), nullptr);
  EXPECT_NE(std::string(m_error->msg).find(".json: sha256: is missing; "), std::string::npos) << m_error->msg;
}

TEST(TensorQuantizer, ClampsAndIsDefinedForEveryFloat) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const std::vector<float> values = {-kInfinity, -1e38F, -5.26F, -5.24F, 0,         0.25F,
                                     0.24F,      122.2F, 122.6F, 1e38F,  kInfinity, NAN};
  std::vector<uint8_t> bytes(values.size(), 99);
  quantizeChannelsLast(values, 1, {0.5F, 10}, bytes);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0, 0, 0, 0, 10, 11, 10, 254, 255, 255, 255, 0}));
}

TEST(TensorQuantizer, TurnsGridsThatAreNoWholeNumberOfBlocks) {
  constexpr size_t kCells = 131, kChannels = 3;
  std::vector<float> maps;
  for (size_t channel = 0; channel < kChannels; ++channel) {
    for (size_t cell = 0; cell < kCells; ++cell) maps.push_back(static_cast<float>(cell + channel));
  }
  std::vector<uint8_t> bytes(maps.size());
  quantizeChannelsLast(maps, kChannels, {1.0F, 0}, bytes);
  for (size_t i = 0; i < bytes.size(); ++i) ASSERT_EQ(bytes[i], i / kChannels + i % kChannels) << i;
}

}  // namespace
