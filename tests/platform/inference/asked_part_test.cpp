#include "platform/workstation/inference/engine/onnx/asked_part.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine_choice.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/unsupported.h"
#include "tests/platform/inference/onnx_writer.h"
#include "tests/platform/inference/small_networks.h"

namespace {

using namespace workstation;  // NOLINT(google-build-using-namespace): all of it is about the engines

constexpr int kHeight = 45, kPackedWidth = 34 * 3;
const std::vector<std::string> kBoth{"out", "out2"};

/// The second look goes on with a layer that oneDNN does not know.
std::string withSigmoid() { return looks().node("Sigmoid", {"out2"}, "out3").file({"out", "out3"}); }

std::vector<std::string> targetsOf(const std::string& onnx, const std::vector<std::string>& outputs) {
  std::vector<std::string> targets;
  const Plan plan = planOf({bytesOf(onnx), kHeight, kPackedWidth, outputs});
  for (const Step& step : plan.steps) targets.push_back(step.target);
  return targets;
}

TEST(AskedPart, LeavesOutLayersAndConstantsThatNobodyAskedFor) {
  const std::string whole = looks().file(kBoth);
  const AskedPart part = askedPart(bytesOf(whole), {"out2"});
  EXPECT_EQ(part.left_out, (std::set<std::string>{"small", "first", "out"}));
  EXPECT_EQ(targetsOf(part.onnx, {"out2"}), (std::vector<std::string>{"picture", "smaller", "first2", "out2"}));
  EXPECT_EQ(part.onnx.find("small.w"), std::string::npos);
  EXPECT_NE(part.onnx.find("shared.w"), std::string::npos) << "both looks have it";
  EXPECT_LT(part.onnx.size(), whole.size());
  const auto picture = noise(size_t{kHeight} * kPackedWidth, 5);
  const auto from_part = makeOpenCvEngine({bytesOf(part.onnx), kHeight, kPackedWidth, {"out2"}});
  const auto from_whole = makeOpenCvEngine({bytesOf(whole), kHeight, kPackedWidth, kBoth});
  EXPECT_EQ(valuesOf(from_part->run(picture.data()))[0], valuesOf(from_whole->run(picture.data()))[1]);
}

TEST(AskedPart, IsTheWholeFileWhereNothingCanBeLeftOut) {
  const auto isWhole = [](const std::string& file, const std::vector<std::string>& outputs) {
    const AskedPart part = askedPart(bytesOf(file), outputs);
    return part.onnx.empty() && part.left_out.empty();
  };
  const std::string whole = looks().file(kBoth);
  EXPECT_FALSE(isWhole(whole, {"out"}));
  EXPECT_TRUE(isWhole(whole, kBoth));
  EXPECT_TRUE(isWhole(whole, {"out", "nowhere"})) << "whoever runs it says what is missing";
  EXPECT_TRUE(isWhole(whole, {"picture"}));
  const auto branch = OnnxMessage().text(1, "then_branch").message(6, OnnxMessage().text(2, "reads small"));
  EXPECT_TRUE(isWhole(looks().node("If", {"picture"}, "out3", {branch}).file({"out3"}), {"out2"}));
  size_t cut = 0;
  for (size_t size = 0; size < whole.size(); ++size) cut += isWhole(whole.substr(0, size), {"out"}) ? 0 : 1;
  EXPECT_EQ(cut, 0U) << "a file that ends too early";
}

TEST(AskedTask, GivesUpTheFileAndStaysTheSame) {
  for (const auto& outputs : {std::vector<std::string>{"out2"}, kBoth}) {
    std::string file = looks().file(kBoth);
    const std::string copy = file;
    const NetworkTask whole{bytesOf(file), kHeight, kPackedWidth, outputs};
    const AskedTask given(whole, std::move(file));
    std::string("other bytes in its place").swap(file);
    const AskedTask borrowed({bytesOf(copy), kHeight, kPackedWidth, outputs});
    EXPECT_TRUE(std::ranges::equal(given.task().onnx, borrowed.task().onnx)) << outputs.size();
  }
}

TEST(EngineChoice, LooksAtNothingButWhatIsAskedFor) {
  const std::string file = withSigmoid();
  const auto logFor = [&](const std::vector<std::string>& outputs, Precision precision, const TensorRanges& ranges) {
    return logOf([&] { chooseEngine("own.onnx", {bytesOf(file), kHeight, kPackedWidth, outputs, precision, ranges}); });
  };
  EXPECT_EQ(logFor({"out"}, Precision::kFloats, {}), "");
  EXPECT_NE(logFor({"out", "out3"}, Precision::kFloats, {}).find("is of kind Sigmoid"), std::string::npos);
  TensorRanges ranges;
  for (const char* tensor : {"small", "first", "out", "smaller", "first2", "out2", "out3"}) ranges[tensor] = {};
  EXPECT_EQ(logFor({"out"}, Precision::kBytes, ranges), "") << "ranges of the other look are no others'";
  ranges["strange"] = {};
  EXPECT_NE(logFor({"out"}, Precision::kBytes, ranges).find("has ranges of 4 tensors, and the network has 3"),
            std::string::npos);
}

}  // namespace
