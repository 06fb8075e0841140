// `velmor_run model check FILE` on networks of which it is known what is wrong with them, and on the program's own.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/support/owners.h"
#include "tests/platform/state_folder.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kModels = fs::path(SOURCE_DIRECTORY) / "models";
const fs::path kData = fs::path(SOURCE_DIRECTORY) / "tests/data";
json poseOutput(const char* name, int channels, double scale, int zero_point, bool read = true) {
  return {{"name", name},   {"layer", read ? name : "constant"}, {"type", "uint8"}, {"shape", {1, 46, 81, channels}},
          {"scale", scale}, {"zero_point", zero_point}};
}

/// Fits the network tiny_blind.
json poseSidecar() {
  return {{"input", {{"name", "picture"}, {"type", "uint8"}, {"shape", {1, 720, 1280, 3}}}},
          {"outputs",
           {poseOutput("heatmaps", 17, 0.08174263, 210), poseOutput("short_offsets", 34, 0.7368203, 142),
            poseOutput("mid_offsets", 64, 1.4407082, 123), poseOutput("segments", 1, 1, 0, false),
            poseOutput("parts", 24, 1, 0, false), poseOutput("long_offsets", 34, 1, 0, false)}}};
}

/// A detector of so many candidates; fits tiny_judge with `scores` "always" or "never" and 20 of them.
json detectorSidecar(const char* scores, int side, int width, int candidates) {
  const auto floats = [](const char* layer, const json& shape) {
    return json{{"name", layer}, {"layer", layer}, {"type", "float32"}, {"shape", shape}};
  };
  return {{"input", {{"name", "picture"}, {"type", "uint8"}, {"shape", {1, side, width, 3}}}},
          {"outputs",
           {floats(scores, {1, candidates}), floats("locations", {1, candidates, 4}), floats("count", json::array({1})),
            floats("classes", {1, candidates})}}};
}

class ModelCheck : public testing::Test {
 protected:
  /// Exit status; what it says is in the files "output" and "errors".
  int check(const fs::path& network, const std::string& program = PROGRAM_DIRECTORY "/velmor_run") const {
    // To know all stacks of what is left at the end would take most of the time.
    const std::string command = "ASAN_OPTIONS=detect_leaks=0 VELMOR_SOURCE_DIR='" SOURCE_DIRECTORY "' '" + program +
                                "' model check '" + network.string() + "' >'" + (m_folder / "output").string() +
                                "' 2>'" + (m_folder / "errors").string() + "'";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  /// The network file's content, with a sidecar that says it is of exactly this one.
  fs::path network(const std::string& content, json sidecar) const {
    const GLibPtr<gchar> sum(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, content.data(), static_cast<gssize>(content.size())));
    sidecar["sha256"] = sum.get();
    m_folder.write("own.onnx", content);
    m_folder.write("own.onnx.json", sidecar.dump());
    return m_folder / "own.onnx";
  }
  static std::string tiny(const std::string& name) {
    std::ifstream file(kData / (name + ".onnx"), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  void expectLines(const std::string& what, const std::vector<std::string>& lines) const {
    const std::string errors = m_folder.read("errors");
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), static_cast<long>(lines.size())) << what << errors;
    EXPECT_EQ(errors.rfind(m_folder.path().string(), 0), 0U) << "the line begins with the file: " << errors;
    for (const std::string& line : lines) EXPECT_NE(errors.find(line), std::string::npos) << what << errors;
    EXPECT_EQ(m_folder.read("output").find("It fits"), std::string::npos) << what;
  }

  StateFolder m_folder;
};

TEST_F(ModelCheck, ANetworkThatFitsTellsWhatItFindsAndHowItIsUsed) {
  fs::copy(kModels / "pose_landscape.onnx", m_folder / "own.onnx");
  fs::copy(kModels / "pose_landscape.onnx.json", m_folder / "own.onnx.json");
  const std::pair<fs::path, std::vector<const char*>> networks[] = {
      {m_folder / "own.onnx",
       {"pose network for pictures of 1280x720", "An adapter makes ", "turned by 0 degrees, has 2 upright",
        "It finds both people.\n", "copy own.onnx and own.onnx.json into models/\n",
        R"({"LandscapeModelFileName":"own.onnx"})"}},
      {kModels / "pose_portrait.onnx",
       {"pose network for pictures of 720x1280", "turned by 270 degrees, has 1 upright", "It finds the person.\n",
        "the program uses it: PortraitModelFileName"}},
      {kModels / "person_detector.onnx",
       {"person detector for squares of 300x300", "confirms the person, and nobody where nobody is",
        "the program uses it: mobilenetModelFileName"}}};
  for (const auto& [file, words] : networks) {
    EXPECT_EQ(check(file), 0) << m_folder.read("errors") << m_folder.read("output");
    EXPECT_EQ(m_folder.read("errors"), "");
    for (const char* word : words) {
      EXPECT_NE(m_folder.read("output").find(word), std::string::npos) << word << m_folder.read("output");
    }
  }
}

TEST_F(ModelCheck, APoseNetworkIsToldWhatItLacks) {
  const auto with = [](const char* path, const json& value) {
    json sidecar = poseSidecar();
    sidecar[json::json_pointer(path)] = value;
    return sidecar;
  };
  json exchanged = poseSidecar();
  std::swap(exchanged["outputs"][0], exchanged["outputs"][1]);
  json five = poseSidecar();
  five["outputs"].erase(5);
  json low = with("/input/shape/1", 704);
  for (json& output : low["outputs"]) output["shape"][1] = 45;
  const json scaled = with("/input/shape", {1, 721, 1281, 3});
  json large_parts = with("/outputs/4/shape/3", 25);
  large_parts["outputs"][5]["zero_point"] = 9;  // which nobody reads
  const std::pair<json, std::vector<std::string>> mistakes[] = {
      {poseSidecar(), {"own.onnx: finds nobody: "}},
      {scaled, {"own.onnx: finds nobody: "}},
      {with("/outputs/0/layer", "bursting"), {"layer \"bursting\": of 63342 values 0 are no number and "}},
      {exchanged,
       {"output 0 \"short_offsets\" (Heatmaps): is [1, 46, 81, 34] of bytes, must be [1, 46, 81, 17] of bytes\n",
        "output 1 \"heatmaps\" (Short Offsets): is [1, 46, 81, 17]"}},
      {with("/outputs/1/scale", 0.5),
       {"output 1 \"short_offsets\" (Short Offsets): has scale 0.5 and zero point 142; the program reads scale "
        "0.7368203 and zero point 142\n"}},
      {with("/outputs/2/zero_point", 124), {"zero point 124; the program reads scale 1.440708 and zero point 123\n"}},
      {large_parts, {"output 4 \"parts\" (Part Heatmaps): is [1, 46, 81, 25]"}},
      {low, {"takes pictures of 1280x704; a pose network takes 1280x720 or 720x1280 (or 1281x721)\n"}},
      {five, {"has 5 outputs; a pose network has 6 (Heatmaps, "}}};
  for (const auto& [sidecar, lines] : mistakes) {
    EXPECT_EQ(check(network(tiny("tiny_blind"), sidecar)), 1) << sidecar;
    expectLines(sidecar.dump(), lines);
  }
}

TEST_F(ModelCheck, ADetectorIsToldWhatItLacks) {
  const std::tuple<const char*, json, std::vector<std::string>> mistakes[] = {
      {"tiny_judge", detectorSidecar("never", 300, 300, 20), {"own.onnx: does not see the person in the square\n"}},
      {"tiny_judge", detectorSidecar("always", 300, 300, 20), {"own.onnx: sees a person in an empty square\n"}},
      {"tiny_detector",
       detectorSidecar("scores", 4, 6, 6),
       {"output 0 \"scores\" (scores): is [1, 6] of floats, must be 20 floats or more\n",
        "output 1 \"locations\" (locations): is [1, 6, 4] of floats, must be 80", "output 3 \"classes\""}}};
  for (const auto& [name, sidecar, lines] : mistakes) {
    EXPECT_EQ(check(network(tiny(name), sidecar)), 1) << name;
    expectLines(name, lines);
  }
}

TEST_F(ModelCheck, WhatIsNoNetworkIsOneLine) {
  const std::string blind = tiny("tiny_blind");
  fs::create_directory(m_folder / "folder.onnx");
  m_folder.write("empty.onnx", "");
  m_folder.write("alone.onnx", blind);
  for (const auto& [name, why] : {std::pair{"missing.onnx", "missing.onnx: there is no such file\n"},
                                  {"folder.onnx", "folder.onnx: is not a file\n"},
                                  {"empty.onnx", "empty.onnx: is empty\n"},
                                  {"alone.onnx", "alone.onnx.json: is missing; "}}) {
    EXPECT_EQ(check(m_folder / name), 1) << name;
    expectLines(name, {why});
  }
  EXPECT_EQ(check(network(blind.substr(0, 1000), poseSidecar())), 1);
  expectLines("truncated", {"is not an ONNX network that OpenCV can read\n"});
  network(blind, poseSidecar());
  m_folder.write("own.onnx", tiny("tiny_judge"));
  EXPECT_EQ(check(m_folder / "own.onnx"), 1);
  expectLines("another's sidecar", {"another network than its sidecar (sha256) describes; "});
}

/// The check's place beside the launcher is taken by what ends as such a network makes it end.
TEST_F(ModelCheck, ANetworkThatEndsTheCheckIsOneLine) {
  fs::copy(PROGRAM_DIRECTORY "/velmor_run", m_folder / "velmor_run");
  for (const auto& [signal, why] :
       {std::pair{"ALRM", "own.onnx: is too slow: "}, {"SEGV", "own.onnx: brings the inference engine down ("}}) {
    m_folder.write("velmor_model_check", std::string("#!/bin/sh\nkill -") + signal + " $$\n");
    fs::permissions(m_folder / "velmor_model_check", fs::perms::owner_all);
    EXPECT_EQ(check(network("", poseSidecar()), (m_folder / "velmor_run").string()), 1) << signal;
    expectLines(signal, {why});
  }
}

}  // namespace
