// How soon the camera notices that it cannot see: faults put into recordings, and what it says without any.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/decoding/video_pipeline.h"
#include "platform/workstation/sight/sight.h"

using workstation::I420View;
using workstation::Look;
using workstation::Sight;
using workstation::SightFault;

namespace {

using namespace std::chrono_literals;

constexpr auto kCycle = 500ms;
constexpr auto kBefore = 90s;  ///< the reference is gathered
constexpr auto kDuring = 80s;
constexpr auto kAfter = 40s;
constexpr double kFocal = 747;  ///< pixels of 1280: 3.7 mm before a sensor 6.34 mm wide
const cv::Size kPicture(1280, 720);
constexpr double kBlack = 16;

/// A recording's luma at every cycle.
struct Recording {
  std::string name;
  std::vector<cv::Mat> pictures;
  std::vector<Look> looks;
  bool full_range = false;
};

Look lookAt(const cv::Mat& luma, bool full_range) {
  static const cv::Mat chroma(kPicture.height / 2, kPicture.width / 2, CV_8U, cv::Scalar(128));
  return workstation::lookAt({luma.data, chroma.data, chroma.data, static_cast<int>(luma.step), chroma.cols,
                              chroma.cols, luma.cols, luma.rows, full_range});
}

Recording readRecording(const std::string& file) {
  Recording recording{file.substr(file.rfind('/') + 1), {}, {}};
  workstation::VideoPipeline pipeline({.uri = std::filesystem::absolute(file).string()},
                                      workstation::VideoPipeline::Mode::kReplay);
  pipeline.play();
  std::optional<std::chrono::nanoseconds> next;
  while (const auto frame = pipeline.pull(20s)) {
    const auto time = frame->runningTime().value_or(0ns);
    if (next && time < *next) continue;
    next = next.value_or(time) + kCycle;
    const I420View view = frame->view();
    cv::Mat luma;
    cv::resize(cv::Mat(view.height, view.width, CV_8U, const_cast<std::uint8_t*>(view.y),
                       static_cast<std::size_t>(view.y_stride)),
               luma, kPicture, 0, 0, cv::INTER_AREA);
    recording.full_range = view.full_range;
    recording.looks.push_back(lookAt(luma, view.full_range));
    recording.pictures.push_back(luma.clone());
  }
  if (recording.pictures.empty()) throw std::runtime_error(file + ": no picture can be read");
  return recording;
}

// ---- Faults

cv::Mat darkened(const cv::Mat& luma, double factor) {
  constexpr double kNoise = 4;
  cv::Mat noise(luma.size(), CV_32F);
  cv::theRNG().fill(noise, cv::RNG::NORMAL, kBlack * (1 - factor), kNoise);
  cv::Mat dark;
  luma.convertTo(dark, CV_32F, factor);
  dark += noise;
  dark.convertTo(dark, CV_8U);
  return dark;
}

/// A cloth right before the lens hangs over a share of the picture: without edges, lighter here and darker there.
cv::Mat covered(const cv::Mat& luma, double share, double level) {
  constexpr double kNoise = 1;
  cv::Mat cloth(luma.size(), CV_32F);
  cv::theRNG().fill(cloth, cv::RNG::NORMAL, 0, kNoise);
  for (int y = 0; y < cloth.rows; ++y) {
    for (int x = 0; x < cloth.cols; ++x) {
      cloth.at<float>(y, x) += static_cast<float>(level * (1 - 0.35 * std::hypot(x - 700, y - 300) / 800) +
                                                  8 * std::sin(x / 90.0 + y / 200.0));
    }
  }
  cv::Mat result = luma.clone();
  const cv::Rect part(0, 0, static_cast<int>(share * luma.cols), luma.rows);
  cloth(part).convertTo(result(part), CV_8U);
  return result;
}

cv::Mat blurred(const cv::Mat& luma, double pixels) {
  cv::Mat result;
  cv::GaussianBlur(luma, result, {}, pixels);
  return result;
}

/// What a camera that is turned by so many degrees sees; where the recording holds nothing its edge goes on.
cv::Mat turned(const cv::Mat& luma, double pan, double tilt, double roll) {
  constexpr double kRadians = CV_PI / 180;
  cv::Matx33d rotation;
  cv::Rodrigues(cv::Vec3d(tilt, pan, roll) * kRadians, rotation);
  const cv::Matx33d lens(kFocal, 0, kPicture.width / 2.0, 0, kFocal, kPicture.height / 2.0, 0, 0, 1);
  cv::Mat result;
  cv::warpPerspective(luma, result, lens * rotation * lens.inv(), luma.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  return result;
}

struct Fault {
  std::string name;
  std::function<cv::Mat(const cv::Mat&)> apply;
  std::optional<SightFault> expected;  ///< none: nothing is to be told
};

std::vector<Fault> allFaults() {
  std::vector<Fault> faults;
  for (const auto& [share, is_dark] : {std::pair(0.5, false), {0.25, false}, {0.1, false}, {0.05, true}, {0.0, true}}) {
    faults.push_back({"light " + std::to_string(static_cast<int>(std::lround(100 * share))) + " %",
                      [share = share](const cv::Mat& luma) { return darkened(luma, share); },
                      is_dark ? std::optional(SightFault::kTooDark) : std::nullopt});
  }
  const auto cover = [&](const char* name, double share, double level, std::optional<SightFault> expected) {
    faults.push_back({name, [=](const cv::Mat& luma) { return covered(luma, share, level); }, expected});
  };
  cover("white cloth", 1, 190, SightFault::kCovered);
  cover("grey cloth", 1, 100, SightFault::kCovered);
  cover("cloth over 85 %", 0.85, 170, SightFault::kCovered);
  cover("cloth over half", 0.5, 170, std::nullopt);
  for (const int pixels : {2, 4, 8, 16, 32}) {
    faults.push_back({"blur " + std::to_string(pixels) + " px",
                      [pixels](const cv::Mat& luma) { return blurred(luma, pixels); },
                      pixels >= 8 ? std::optional(SightFault::kOutOfFocus) : std::nullopt});
  }
  const auto turn = [&](const char* name, double pan, double tilt, double roll) {
    faults.push_back({name, [=](const cv::Mat& luma) { return turned(luma, pan, tilt, roll); }, SightFault::kMoved});
  };
  turn("panned 1 deg", 1, 0, 0);
  turn("panned 3 deg", -3, 0, 0);
  turn("panned 10 deg", 10, 0, 0);
  turn("tilted 1 deg", 0, 1, 0);
  turn("tilted 3 deg", 0, -3, 0);
  turn("tilted 10 deg", 0, 10, 0);
  turn("rolled 1 deg", 0, 0, 1);
  turn("rolled 3 deg", 0, 0, -3);
  turn("rolled 10 deg", 0, 0, 10);
  return faults;
}

const char* nameOf(SightFault fault) {
  constexpr std::array kNames{"frozen", "too dark", "covered", "out of focus", "moved"};
  return kNames.at(static_cast<std::size_t>(fault));
}

// ---- One recording

/// Plays a recording again and again.
class Player {
 public:
  explicit Player(const Recording& recording) : m_recording(recording) {}

  [[nodiscard]] Sight::Times times() const { return {Sight::Time(m_cycle * kCycle), {}}; }
  void play(Sight& sight) {
    sight.take(m_recording.looks[index()], times());
    ++m_cycle;
  }
  void play(Sight& sight, const Fault& fault, const Recording& with) {
    sight.take(lookAt(fault.apply(with.pictures[index() % with.pictures.size()]), with.full_range), times());
    ++m_cycle;
  }

 private:
  [[nodiscard]] std::size_t index() const { return static_cast<std::size_t>(m_cycle) % m_recording.looks.size(); }
  const Recording& m_recording;
  std::int64_t m_cycle = 0;
};

/// What is wrong now, in words; empty for nothing.
std::string saidBy(const Sight& sight) {
  std::string said;
  for (const SightFault fault : workstation::kSightFaults) {
    if (sight.since(fault)) said += (said.empty() ? "" : ", ") + std::string(nameOf(fault));
  }
  return said;
}

struct Outcome {
  std::optional<double> found_s;  ///< after the fault's beginning
  std::optional<double> ended_s;  ///< after its end
  std::string others;             ///< what else was said
  std::string last;               ///< where the room was found when the fault was given up
};

std::string textOf(const workstation::Displacement& displacement) {
  char text[128];
  std::snprintf(text, sizeof text, "%d windows, %d found, %d agree, %d against, %.1f px, %.2f nearby",
                displacement.windows, displacement.found, displacement.agreeing, displacement.against,
                displacement.pixels, displacement.nearby);
  return text;
}

Outcome inject(Sight sight, Player player, const Fault& fault, const Recording& with) {
  Outcome outcome;
  const auto began = player.times().taken;
  const auto isSaid = [&] { return fault.expected && sight.since(*fault.expected); };
  const auto note = [&] {
    const std::string said = saidBy(sight);
    if (!said.empty() && !isSaid() && outcome.others.find(said) == std::string::npos) outcome.others += said + " ";
  };
  while (player.times().taken - began < kDuring && !isSaid()) {
    player.play(sight, fault, with);
    note();
  }
  if (!isSaid()) {
    if (fault.expected == SightFault::kMoved) outcome.last = " (" + textOf(sight.displacement()) + ")";
    return outcome;
  }
  outcome.found_s = std::chrono::duration<double>(player.times().taken - began).count();
  const auto ended = player.times().taken;
  while (player.times().taken - ended < kAfter && isSaid()) {
    player.play(sight);
    note();
  }
  if (!isSaid()) outcome.ended_s = std::chrono::duration<double>(player.times().taken - ended).count();
  return outcome;
}

/// Figures of one fault over all recordings.
struct Sum {
  std::vector<double> found_s, ended_s;
  int recordings = 0;
  int with_others = 0;
  std::vector<std::string> notes;
};

void add(Sum& sum, const Outcome& outcome, const std::string& name, bool is_expected) {
  ++sum.recordings;
  if (outcome.found_s) sum.found_s.push_back(*outcome.found_s);
  if (outcome.ended_s) sum.ended_s.push_back(*outcome.ended_s);
  if (!outcome.others.empty()) ++sum.with_others;
  if ((is_expected && !outcome.found_s) || !outcome.others.empty()) {
    sum.notes.push_back(name + (is_expected && !outcome.found_s ? " not found" + outcome.last : "") +
                        (outcome.others.empty() ? "" : " said " + outcome.others));
  }
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::string spanOf(const std::vector<double>& values) {
  if (values.empty()) return "-";
  char text[64];
  std::snprintf(text, sizeof text, "%.1f, %.1f", median(values), *std::max_element(values.begin(), values.end()));
  return text;
}

struct Table {
  std::vector<std::string> order;
  std::map<std::string, Sum> sums;
  std::vector<std::string> falsely;
  int recordings = 0;
  int without_reference = 0;
  double seconds = 0;
  double farthest_px = 0;   ///< the room was found from its place, without a fault, by half of the windows
  double least_nearby = 1;  ///< share of the windows

  Sum& at(const std::string& name) {
    if (!sums.contains(name)) order.push_back(name);
    return sums[name];
  }
  void print() const;
};

void Table::print() const {
  std::printf("%d recordings, %.0f s of video without a fault: ", recordings, seconds);
  std::printf(falsely.empty() ? "nothing said\n" : "said falsely:\n");
  for (const std::string& line : falsely) std::printf("  %s\n", line.c_str());
  std::printf(
      "%d of them have no reference; the room was found up to %.1f px from its place, with %.0f %% of its windows at "
      "least\n\n",
      without_reference, farthest_px, 100 * least_nearby);
  std::printf("| fault | found | after s: median, longest | ended after s | else said |\n|---|---|---|---|---|\n");
  for (const std::string& name : order) {
    const Sum& sum = sums.at(name);
    std::printf("| %s | %zu of %d | %s | %s | %d |\n", name.c_str(), sum.found_s.size(), sum.recordings,
                spanOf(sum.found_s).c_str(), spanOf(sum.ended_s).c_str(), sum.with_others);
  }
  for (const std::string& name : order) {
    for (const std::string& note : sums.at(name).notes) std::printf("%s: %s\n", name.c_str(), note.c_str());
  }
}

/// The recording without a fault, twice over at least; what is said then is false. Leaves the sight as it is when the
/// reference is known.
Sight playClean(const Recording& recording, Player& player, Table& table) {
  Sight sight;
  sight.setReference(std::nullopt);
  std::string said;
  const auto cycles = std::max<std::int64_t>(kBefore / kCycle, static_cast<std::int64_t>(2 * recording.looks.size()));
  for (std::int64_t cycle = 0; cycle < cycles; ++cycle) {
    player.play(sight);
    const std::string now = saidBy(sight);
    if (now != said && !now.empty()) {
      table.falsely.push_back(recording.name + " at " + std::to_string(static_cast<double>(cycle) / 2) + " s: " + now);
    }
    said = now;
    const auto& displacement = sight.displacement();
    if (displacement.windows == 0) continue;
    if (displacement.nearby >= 0.5) table.farthest_px = std::max(table.farthest_px, displacement.pixels);
    table.least_nearby = std::min(table.least_nearby, displacement.nearby);
  }
  table.seconds += static_cast<double>(cycles) / 2;
  ++table.recordings;
  if (!sight.reference()) {
    ++table.without_reference;
    std::fprintf(stderr, "%s: no reference\n", recording.name.c_str());
  }
  return sight;
}

constexpr const char* kUsage =
    "velmor_sight [--clean] [--only WORD] FILE|NAME=FILE:OTHER...\n"
    "  how soon the camera notices faults that are put into recordings, and what it says without any\n"
    "    --clean  without faults only\n"
    "    --only   faults with this word in their name only\n"
    "    NAME=FILE:OTHER  OTHER is what a camera that was moved sees of the same\n";

struct Call {
  bool is_clean = false;
  std::string only;
  std::vector<std::string> words;
};

Call callFrom(int count, char** words) {
  Call call;
  for (int i = 1; i < count; ++i) {
    const std::string word = words[i];
    if (word == "--clean") {
      call.is_clean = true;
    } else if (word == "--only" && i + 1 < count) {
      call.only = words[++i];
    } else if (word.starts_with("--")) {
      throw std::invalid_argument(word);
    } else {
      call.words.push_back(word);
    }
  }
  if (call.words.empty()) throw std::invalid_argument("no recording");
  return call;
}

void measureFaults(const Recording& recording, const Call& call, Table& table) {
  Player player(recording);
  const Sight sight = playClean(recording, player, table);
  if (call.is_clean) return;
  for (const Fault& fault : allFaults()) {
    if (fault.name.find(call.only) == std::string::npos) continue;
    add(table.at(fault.name), inject(sight, player, fault, recording), recording.name, fault.expected.has_value());
  }
}

void measurePair(const std::string& name, const Recording& before, const Recording& after, Table& table) {
  const Fault moved{name, [](const cv::Mat& luma) { return luma; }, SightFault::kMoved};
  Player player(before);
  const Sight sight = playClean(before, player, table);
  add(table.at(name), inject(sight, player, moved, after), before.name, true);
}

int measure(const Call& call) {
  Table table;
  for (const std::string& word : call.words) {
    const std::size_t equals = word.find('=');
    const std::size_t colon = word.find(':', equals);
    if (equals == std::string::npos || colon == std::string::npos) {
      measureFaults(readRecording(word), call, table);
    } else {
      measurePair(word.substr(0, equals), readRecording(word.substr(equals + 1, colon - equals - 1)),
                  readRecording(word.substr(colon + 1)), table);
    }
  }
  table.print();
  return table.falsely.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** words) try { return measure(callFrom(count, words)); } catch (const std::invalid_argument&) {
  std::fputs(kUsage, stderr);
  return 2;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return EXIT_FAILURE;
}
