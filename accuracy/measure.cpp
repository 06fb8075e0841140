// velmor_measure: how well the pose networks find people in whole rendered pictures.
//
//   velmor_measure MODELS DATASET [COUNT]
//
// DATASET is a folder of `velmor_simulator dataset ... --whole`. Every picture goes through the four runs and the
// fusion, as in a cycle of the program but without the validator, at several pose thresholds and sensitivities.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/initial_params.h"
#include "app/process_state.h"
#include "pose/BodypixPoseEstimator.h"
#include "pose/skeleton_fusion.h"

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::size_t kPeople = 3;
constexpr std::size_t kKeypoints = 17;
constexpr std::array<float, 4> kPoseThresholds = {0.1F, 0.15F, 0.2F, 0.3F};
constexpr std::array<float, 6> kSensitivities = {0.3F, 0.35F, 0.4F, 0.45F, 0.5F, 0.6F};

/// One picture from memory, turned as the camera's stream turns it.
class MemorySource : public ImageFrameSource {
 public:
  explicit MemorySource(cv::Mat picture) : m_picture(std::move(picture)) {}

  bool getFrame(int height, int width, int rotation, uint8_t* pixels) override {
    cv::Mat out(height, width, CV_8UC3, pixels);
    if (rotation == 180) {
      std::reverse_copy(m_picture.data, m_picture.data + m_picture.total() * 3, pixels);
    } else if (rotation == 0) {
      m_picture.copyTo(out);
    } else {
      cv::rotate(m_picture, out, rotation == 90 ? cv::ROTATE_90_CLOCKWISE : cv::ROTATE_90_COUNTERCLOCKWISE);
    }
    return true;
  }

 private:
  cv::Mat m_picture;
};

struct Truth {
  Point shoulders;  ///< their middle
  float size = 0;   ///< longer side of the body's box, pixels
  float tilt = 0;   ///< degrees from upright
};

using Labels = std::array<std::array<std::array<float, 3>, kKeypoints>, kPeople>;

/// The people of a picture who show enough of themselves to be found.
std::vector<Truth> findablePeople(const Labels& labels) {
  std::vector<Truth> people;
  for (const auto& person : labels) {
    const auto visible = std::count_if(person.begin(), person.end(), [](const auto& k) { return k[2] == 2.0F; });
    if (visible < 7) continue;
    const auto middle = [&](std::size_t a, std::size_t b, std::size_t axis) {
      return (person[a][axis] + person[b][axis]) / 2;
    };
    const float x = middle(5, 6, 0);
    const float y = middle(5, 6, 1);
    const float dx = x - middle(15, 16, 0);
    const float dy = y - middle(15, 16, 1);
    if (x < 0 || y < 0 || x >= kWidth || y >= kHeight) continue;
    people.push_back({Point(static_cast<int>(x), static_cast<int>(y)), std::max(std::abs(dx), std::abs(dy)) + 40,
                      std::abs(std::atan2(dx, -dy)) * 57.2958F});
  }
  return people;
}

struct Tally {
  std::array<int, 3> people{};  ///< upright, across, head down
  std::array<int, 3> found{};
  int extra = 0;
  double error = 0;  ///< of the shoulders' middle, pixels
};

std::size_t kindOf(const Truth& person) { return person.tilt < 45 ? 0 : person.tilt < 135 ? 1 : 2; }

void countFound(const std::vector<Truth>& people, const Skeletons& skeletons, Tally& tally) {
  std::vector<bool> used(skeletons.size());
  for (const Truth& person : people) {
    float best = 0.3F * person.size;
    std::size_t index = skeletons.size();
    for (std::size_t i = 0; i < skeletons.size(); ++i) {
      const float distance = std::hypot(static_cast<float>(skeletons[i].superior.x - person.shoulders.x),
                                        static_cast<float>(skeletons[i].superior.y - person.shoulders.y));
      if (!used[i] && distance < best) {
        best = distance;
        index = i;
      }
    }
    ++tally.people[kindOf(person)];
    if (index == skeletons.size()) continue;
    used[index] = true;
    ++tally.found[kindOf(person)];
    tally.error += static_cast<double>(best);
  }
  tally.extra += static_cast<int>(std::count(used.begin(), used.end(), false));
}

Skeletons above(const Skeletons& skeletons, float threshold) {
  Skeletons kept;
  std::copy_if(skeletons.begin(), skeletons.end(), std::back_inserter(kept),
               [&](const Skeleton& skeleton) { return skeleton.score >= threshold; });
  return kept;
}

Skeletons run(BodypixPoseEstimator& estimator, MemorySource& source, int rotation) {
  if (!estimator.runModel(source, rotation)) throw std::runtime_error("a model run failed");
  return estimator.getSkeletons();
}

using Tallies = std::array<std::array<Tally, kSensitivities.size()>, kPoseThresholds.size()>;

/// The four runs on one picture, fused at every threshold and sensitivity.
class Runs {
 public:
  explicit Runs(const std::string& models)
      : m_landscape(models + "/pose_landscape.onnx"), m_portrait(models + "/pose_portrait.onnx") {}

  void count(const cv::Mat& picture, const std::vector<Truth>& people, Tallies& tallies) {
    MemorySource source(picture);
    const Skeletons north = run(m_landscape, source, 0);
    const Skeletons south = run(m_landscape, source, 180);
    const Skeletons west = run(m_portrait, source, 90);
    const Skeletons east = run(m_portrait, source, 270);
    for (std::size_t p = 0; p < kPoseThresholds.size(); ++p) {
      for (std::size_t s = 0; s < kSensitivities.size(); ++s) {
        const float t = kPoseThresholds[p];
        countFound(people,
                   combineSkeletons(above(north, t), above(east, t), above(south, t), above(west, t), kSensitivities[s],
                                    kWidth, kHeight),
                   tallies[p][s]);
      }
    }
  }

 private:
  BodypixPoseEstimator m_landscape;
  BodypixPoseEstimator m_portrait;
};

void print(const Tallies& tallies, int pictures) {
  std::printf("%d pictures\npose threshold, sensitivity: found upright, across, head down; extra a picture; error px\n",
              pictures);
  for (std::size_t p = 0; p < kPoseThresholds.size(); ++p) {
    for (std::size_t s = 0; s < kSensitivities.size(); ++s) {
      const Tally& tally = tallies[p][s];
      const auto share = [&](std::size_t kind) { return 100.0 * tally.found[kind] / std::max(1, tally.people[kind]); };
      const int found = tally.found[0] + tally.found[1] + tally.found[2];
      std::printf("%.2f, %.2f: %5.1f %% of %d, %5.1f %% of %d, %5.1f %% of %d; %.3f; %.1f\n",
                  static_cast<double>(kPoseThresholds[p]), static_cast<double>(kSensitivities[s]), share(0),
                  tally.people[0], share(1), tally.people[1], share(2), tally.people[2],
                  static_cast<double>(tally.extra) / std::max(1, pictures), tally.error / std::max(1, found));
    }
  }
}

void measure(const std::string& models, const std::string& dataset, int limit) {
  std::ifstream images(dataset + "/images.bin", std::ios::binary);
  std::ifstream labels(dataset + "/labels.bin", std::ios::binary);
  if (!images || !labels) throw std::runtime_error(dataset + ": no images.bin and labels.bin in it");
  g_InitialParams.l_LarodChipType = LAROD_CHIP_CPU;
  Runs runs(models);
  Tallies tallies;
  cv::Mat picture(kHeight, kWidth, CV_8UC3);
  Labels truth;
  int pictures = 0;
  while (pictures < limit &&
         images.read(reinterpret_cast<char*>(picture.data), std::streamsize{kWidth} * kHeight * 3) &&
         labels.read(reinterpret_cast<char*>(truth.data()), sizeof truth)) {
    runs.count(picture, findablePeople(truth), tallies);
    ++pictures;
  }
  print(tallies, pictures);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: velmor_measure MODELS DATASET [COUNT]\n";
    return 2;
  }
  try {
    measure(argv[1], argv[2], argc > 3 ? std::stoi(argv[3]) : 1000000);
  } catch (const std::exception& error) {
    std::cerr << "velmor_measure: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
