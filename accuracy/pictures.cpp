// Every picture of a folder goes through the first half of the program's cycle: four runs, validator, fusion.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "accuracy/commands.h"
#include "accuracy/program.h"
#include "accuracy/scoring.h"
#include "accuracy/still_recording.h"
#include "app/lifecycle/analysis_cycle.h"
#include "platform/clock/clock.h"

namespace {

using nlohmann::json;

constexpr double kLargeShare = 0.03;  ///< of the picture
constexpr double kPictureArea = 1280.0 * 720.0;

struct Result {
  const FolderPicture* picture;
  LabelledPicture truth;  ///< as the camera saw it
  Skeletons skeletons;
  Verdict verdict;
};

/// Whether a person whose joints are labelled shows both ankles and takes some of the picture, before it was turned.
bool isWhole(const LabelledPerson& person) {
  if (!person.joints || !person.box) return false;
  const auto shows = [&](BodyPart part) { return (*person.joints)[static_cast<std::size_t>(part)].visibility > 0; };
  return shows(BodyPart::LeftAnkle) && shows(BodyPart::RightAnkle) &&
         person.box->width * person.box->height >= kLargeShare * kPictureArea;
}

std::vector<Result> analyse(const std::vector<FolderPicture>& pictures, const Viewing& viewing) {
  std::vector<Result> results;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    ticker_clock::setReplayTime(TimeStamp(static_cast<long>(i) * kStillLength + kStillLength / 2));
    if (!find_people()) throw std::runtime_error(pictures[i].file + ": a model could not be run");
    Result result{&pictures[i], viewed(pictures[i].truth, viewing), g_skeletons, {}};
    result.verdict = judge(result.truth, result.skeletons);
    results.push_back(std::move(result));
    std::fprintf(stderr, "\r%zu of %zu pictures", i + 1, pictures.size());
  }
  std::fputc('\n', stderr);
  return results;
}

std::vector<Result> results(const PicturesRequest& request, const std::vector<FolderPicture>& pictures) {
  const TemporaryFolder folder;
  workstation::LaunchRequest launch;
  launch.source = folder.path() / "pictures.mkv";
  writeStills(*launch.source, static_cast<int>(pictures.size()), [&](int index) {
    return viewed(readJpeg(request.folder / pictures[static_cast<std::size_t>(index)].file), request.viewing);
  });
  const workstation::LaunchPlan plan = takeOver(launch, sourceTree());
  startEyes();
  return analyse(pictures, request.viewing);
}

struct Row {
  int pictures = 0;
  int people = 0;
  int found = 0;
  std::size_t doubles = 0;
  std::size_t nobodys = 0;
};

/// The row of the pictures, and of their findable people, that fulfil the conditions.
Row count(const std::vector<Result>& results, const std::function<bool(const FolderPicture&)>& is_counted,
          const std::function<bool(const LabelledPerson&)>& is_meant) {
  Row row;
  for (const Result& result : results) {
    if (!is_counted(*result.picture)) continue;
    ++row.pictures;
    row.doubles += result.verdict.doubles.size();
    row.nobodys += result.verdict.nobodys.size();
    for (std::size_t p = 0; p < result.truth.people.size(); ++p) {
      const LabelledPerson& person = result.picture->truth.people[p];
      if (!person.findable || !is_meant(person)) continue;
      ++row.people;
      row.found += result.verdict.isFound(p) ? 1 : 0;
    }
  }
  return row;
}

std::string share(int part, int whole) {
  if (whole == 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.0f %%", 100.0 * part / whole);
  return text;
}

void print(const char* name, const Row& row) {
  std::printf("| %s | %d | %d of %d | %s | %zu | %.2f |\n", name, row.pictures, row.found, row.people,
              share(row.found, row.people).c_str(), row.doubles,
              static_cast<double>(row.nobodys) / std::max(1, row.pictures));
}

void print(const std::vector<Result>& results, const Viewing& viewing) {
  const auto anybody = [](const LabelledPerson&) { return true; };
  std::vector<std::string> kinds;
  for (const Result& result : results) {
    const std::string& kind = result.picture->kind;
    if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) kinds.push_back(kind);
  }
  std::printf("Turned by %d degrees, light %.2f\n\n", viewing.turn, viewing.light);
  std::puts("| | pictures | people found | | doubles | false a picture |\n|---|---|---|---|---|---|");
  for (const std::string& kind : kinds) {
    print(kind.c_str(), count(
                            results, [&](const auto& picture) { return picture.kind == kind; }, anybody));
  }
  const auto all = [](const FolderPicture&) { return true; };
  print("all", count(results, all, anybody));
  const Row whole = count(results, all, isWhole);
  std::printf("| ankles show, 3 %% of the picture or more | | %d of %d | %s | | |\n", whole.found, whole.people,
              share(whole.found, whole.people).c_str());
}

json describe(const Skeleton& skeleton) {
  json joints = json::array();
  for (const BodyPart part : BodyParts) {
    const Keypoint& joint = skeleton.keypoints.at(part);
    joints.push_back({joint.point.x, joint.point.y, joint.score});
  }
  return {{"score", skeleton.score},
          {"rotation", skeleton.detectorRotation},
          {"superior", {skeleton.superior.x, skeleton.superior.y}},
          {"k", joints}};
}

json describe(const Result& result) {
  json skeletons = json::array();
  for (const Skeleton& skeleton : result.skeletons) skeletons.push_back(describe(skeleton));
  json found = json::array();
  json missed = json::array();
  for (std::size_t p = 0; p < result.truth.people.size(); ++p) {
    const LabelledPerson& person = result.truth.people[p];
    json entry = {{"person", p}, {"findable", person.findable}};
    if (person.mid) entry["mid"] = {person.mid->x, person.mid->y};
    if (result.verdict.isFound(p)) {
      entry["skeleton"] = result.verdict.finder[p];
      entry["oks"] = keypointSimilarity(person, result.skeletons[result.verdict.finder[p]]);
      found.push_back(entry);
    } else if (person.findable) {
      missed.push_back(entry);
    }
  }
  return {{"file", result.picture->file},
          {"kind", result.picture->kind},
          {"skeletons", skeletons},
          {"found", found},
          {"missed", missed},
          {"doubles", result.verdict.doubles},
          {"astray", result.verdict.astray},
          {"false", result.verdict.nobodys}};
}

}  // namespace

void measurePictures(const PicturesRequest& request) {
  const std::vector<FolderPicture> pictures = readTruth(request.folder);
  std::ofstream out;
  if (request.json) out.open(*request.json);
  if (!out) throw std::runtime_error(request.json->string() + ": cannot be written");
  const std::vector<Result> measured = results(request, pictures);
  print(measured, request.viewing);
  if (!request.json) return;
  json described = json::array();
  for (const Result& result : measured) described.push_back(describe(result));
  out << described.dump(1) << '\n';
  out.close();
  if (!out) throw std::runtime_error(request.json->string() + ": cannot be written");
}
