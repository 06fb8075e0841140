#include "accuracy/labelled_pictures.h"

#include <turbojpeg.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr double kGrey = 114;  ///< of borders, as the folder's own pictures have them
constexpr double kQuarterScale = double{kHeight} / kWidth;
constexpr int kQuarterWidth = kHeight * kHeight / kWidth;     ///< of a picture turned by a quarter, shrunk
constexpr int kQuarterBorder = (kWidth - kQuarterWidth) / 2;  ///< pixels at its left

std::string contentsOf(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  if (!in.is_open() || bytes.empty()) throw std::runtime_error(file.string() + ": cannot be read, or is empty");
  return bytes;
}

Place placeFrom(const json& value) { return {value.at(0).get<double>(), value.at(1).get<double>()}; }

LabelledJoints jointsFrom(const json& rows) {
  LabelledJoints joints;
  if (rows.size() != joints.size())
    throw std::runtime_error("\"k\" must have " + std::to_string(joints.size()) + " rows");
  std::transform(rows.begin(), rows.end(), joints.begin(), [](const json& row) {
    return LabelledJoint{placeFrom(row), static_cast<int>(row.at(2).get<double>())};
  });
  return joints;
}

/// A group has a box and nothing else that could be found.
LabelledPerson personFrom(const json& entry) {
  LabelledPerson person;
  if (entry.contains("bbox")) {
    const json& box = entry["bbox"];
    person.box =
        Box{box.at(0).get<double>(), box.at(1).get<double>(), box.at(2).get<double>(), box.at(3).get<double>()};
  }
  const json crowd = entry.value("crowd", json(0));
  if (crowd.is_boolean() ? crowd.get<bool>() : crowd.get<int>() != 0) return person;
  if (entry.contains("k")) person.joints = jointsFrom(entry["k"]);
  if (person.joints) completeFromJoints(person, double{kWidth} * kHeight);
  if (entry.contains("mid")) person.mid = placeFrom(entry["mid"]);
  if (entry.contains("hip")) person.hip = placeFrom(entry["hip"]);
  person.head = entry.value("head", person.head);
  person.area = entry.value("area", 0.0);
  person.findable = entry.value("findable", false);
  return person;
}

FolderPicture pictureFrom(const json& entry) {
  FolderPicture picture{entry.at("file").get<std::string>(), entry.at("kind").get<std::string>(), {}};
  for (const json& person : entry.at("people")) {
    if (person.contains("ignore")) {
      const json& circle = person["ignore"];
      picture.truth.ignored.push_back({placeFrom(circle), circle.at(2).get<double>()});
    } else {
      picture.truth.people.push_back(personFrom(person));
    }
  }
  return picture;
}

Place viewed(const Place& place, int turn) {
  switch (turn) {
    case 90:
      return {kQuarterBorder + (kHeight - place.y) * kQuarterScale, place.x * kQuarterScale};
    case 180:
      return {kWidth - place.x, kHeight - place.y};
    case 270:
      return {kQuarterBorder + place.y * kQuarterScale, (kWidth - place.x) * kQuarterScale};
    default:
      return place;
  }
}

Box viewed(const Box& box, int turn) {
  const Place a = viewed(Place{box.x, box.y}, turn);
  const Place b = viewed(Place{box.x + box.width, box.y + box.height}, turn);
  return {std::min(a.x, b.x), std::min(a.y, b.y), std::abs(a.x - b.x), std::abs(a.y - b.y)};
}

LabelledPerson viewed(LabelledPerson person, int turn, double scale) {
  if (person.joints) {
    for (LabelledJoint& joint : *person.joints) joint.at = viewed(joint.at, turn);
  }
  if (person.box) person.box = viewed(*person.box, turn);
  if (person.mid) person.mid = viewed(*person.mid, turn);
  if (person.hip) person.hip = viewed(*person.hip, turn);
  person.head *= scale;
  person.area *= scale * scale;
  return person;
}

bool isQuarter(int turn) { return turn == 90 || turn == 270; }

}  // namespace

std::vector<FolderPicture> readTruth(const fs::path& folder) {
  const fs::path file = folder / "truth.json";
  const json list = json::parse(contentsOf(file), nullptr, false);
  if (!list.is_array()) throw std::runtime_error(file.string() + ": must be a JSON list of pictures");
  std::vector<FolderPicture> pictures;
  try {
    std::transform(list.begin(), list.end(), std::back_inserter(pictures), pictureFrom);
  } catch (const std::exception& error) {
    const std::string number = std::to_string(pictures.size() + 1);
    throw std::runtime_error(file.string() + ": picture " + number + ": " + error.what());
  }
  return pictures;
}

LabelledPicture viewed(const LabelledPicture& truth, const Viewing& viewing) {
  const double scale = isQuarter(viewing.turn) ? kQuarterScale : 1;
  LabelledPicture result;
  std::transform(truth.people.begin(), truth.people.end(), std::back_inserter(result.people),
                 [&](const LabelledPerson& person) { return viewed(person, viewing.turn, scale); });
  std::transform(truth.ignored.begin(), truth.ignored.end(), std::back_inserter(result.ignored),
                 [&](const IgnoredCircle& circle) {
                   return IgnoredCircle{viewed(circle.centre, viewing.turn), circle.radius * scale};
                 });
  return result;
}

cv::Mat viewed(const cv::Mat& picture, const Viewing& viewing) {
  cv::Mat lit;
  picture.convertTo(lit, -1, viewing.light);
  if (viewing.turn == 0) return lit;
  cv::Mat turned;
  cv::rotate(lit, turned,
             viewing.turn == 90    ? cv::ROTATE_90_CLOCKWISE
             : viewing.turn == 180 ? cv::ROTATE_180
                                   : cv::ROTATE_90_COUNTERCLOCKWISE);
  if (!isQuarter(viewing.turn)) return turned;
  cv::Mat shrunk;
  cv::resize(turned, shrunk, cv::Size(kQuarterWidth, kHeight), 0, 0, cv::INTER_AREA);
  cv::Mat bordered;
  cv::copyMakeBorder(shrunk, bordered, 0, 0, kQuarterBorder, kWidth - kQuarterBorder - kQuarterWidth,
                     cv::BORDER_CONSTANT, cv::Scalar::all(kGrey * viewing.light));
  return bordered;
}

cv::Mat readJpeg(const fs::path& file) {
  const std::string bytes = contentsOf(file);
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), tjDestroy);
  int width = 0;
  int height = 0;
  int sampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(decoder.get(), data, bytes.size(), &width, &height, &sampling, &colours) != 0) {
    throw std::runtime_error(file.string() + ": is not a JPEG file: " + tjGetErrorStr2(decoder.get()));
  }
  if (width != kWidth || height != kHeight) {
    throw std::runtime_error(file.string() + ": must be 1280x720, not " + std::to_string(width) + "x" +
                             std::to_string(height));
  }
  cv::Mat picture(height, width, CV_8UC3);
  if (tjDecompress2(decoder.get(), data, bytes.size(), picture.data, width, 0, height, TJPF_RGB, TJFLAG_ACCURATEDCT) !=
          0 &&
      tjGetErrorCode(decoder.get()) != TJERR_WARNING) {
    throw std::runtime_error(file.string() + ": cannot be decoded: " + tjGetErrorStr2(decoder.get()));
  }
  return picture;
}
