// A folder of labelled pictures, and how a camera sees it.
#include "accuracy/labelled_pictures.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <fstream>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>

#include "accuracy/still_recording.h"
#include "platform/workstation/decoding/video_camera.h"
#include "tests/platform/state_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned char kDark = 40;
constexpr unsigned char kBright = 240;

/// A dark picture with a bright square of 20 pixels around (200, 100).
cv::Mat markedPicture() {
  cv::Mat picture(720, 1280, CV_8UC3, cv::Scalar::all(kDark));
  picture(cv::Rect(190, 90, 20, 20)).setTo(cv::Scalar::all(kBright));
  return picture;
}

void writeJpeg(const fs::path& file, const cv::Mat& picture) {
  tjhandle encoder = tjInitCompress();
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  tjCompress2(encoder, picture.data, picture.cols, 0, picture.rows, TJPF_RGB, &bytes, &size, TJSAMP_444, 95, 0);
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes), static_cast<long>(size));
  tjFree(bytes);
  tjDestroy(encoder);
}

/// The middle of what is bright.
Place brightPlace(const cv::Mat& picture) {
  cv::Mat grey;
  cv::cvtColor(picture, grey, cv::COLOR_RGB2GRAY);
  const cv::Moments moments = cv::moments(grey > 200, true);
  return {moments.m10 / moments.m00 + 0.5, moments.m01 / moments.m00 + 0.5};
}

TEST(LabelledPictures, TruthAndPictureTurnTogether) {
  const StateFolder folder;
  folder.write("truth.json", R"([{"file": "a.jpg", "kind": "photo", "people": [
    {"mid": [200, 100], "hip": [260, 180], "head": 64, "bbox": [150, 80, 100, 60], "area": 3200, "findable": true},
    {"ignore": [200, 100, 32]}]}])");
  writeJpeg(folder / "a.jpg", markedPicture());
  const FolderPicture picture = readTruth(folder.path()).at(0);
  const cv::Mat pixels = readJpeg(folder / picture.file);
  for (const int turn : {0, 90, 180, 270}) {
    const Viewing viewing{turn, 1};
    const LabelledPicture truth = viewed(picture.truth, viewing);
    const cv::Mat seen = viewed(pixels, viewing);
    ASSERT_EQ(seen.size(), cv::Size(1280, 720));
    const Place bright = brightPlace(seen);
    const LabelledPerson& person = truth.people.at(0);
    EXPECT_NEAR(person.mid->x, bright.x, 0.6) << turn;
    EXPECT_NEAR(person.mid->y, bright.y, 0.6) << turn;
    EXPECT_EQ(truth.ignored.at(0).centre.x, person.mid->x);
    EXPECT_TRUE(person.findable);
    // The mark lies left of the box's middle and below its top by a third, wherever these are now; the hips 100 away.
    const double scale = turn % 180 == 90 ? 0.5625 : 1;
    EXPECT_DOUBLE_EQ(person.head, 64 * scale);
    EXPECT_DOUBLE_EQ(person.area, 3200 * scale * scale);
    EXPECT_DOUBLE_EQ(truth.ignored.at(0).radius, 32 * scale);
    EXPECT_DOUBLE_EQ(person.box->width * person.box->height, 6000 * scale * scale);
    EXPECT_EQ(person.box->width > person.box->height, turn % 180 == 0);
    EXPECT_NEAR(std::hypot(person.hip->x - person.mid->x, person.hip->y - person.mid->y), 100 * scale, 1e-9);
    const Place middle{person.box->x + person.box->width / 2, person.box->y + person.box->height / 2};
    EXPECT_NEAR(std::hypot(middle.x - person.mid->x, middle.y - person.mid->y), 10 * scale, 1e-9);
  }
  EXPECT_EQ(viewed(pixels, {90, 1}).at<cv::Vec3b>(360, 10)[0], 114);
}

TEST(LabelledPictures, ADarkRoomHasAShareOfEveryByte) {
  const cv::Mat dark = viewed(markedPicture(), {0, 0.22});
  EXPECT_EQ(dark.at<cv::Vec3b>(100, 200)[0], 53);
  EXPECT_EQ(dark.at<cv::Vec3b>(0, 0)[2], 9);
}

TEST(LabelledPictures, PeopleAreReadAsFarAsTheyAreKnown) {
  const StateFolder folder;
  std::string joints = "[[100, 50, 2]";
  for (int i = 1; i < 17; ++i) joints += i == 5 ? ", [90, 80, 1]" : i == 6 ? ", [110, 80, 2]" : ", [0, 0, 0.0]";
  joints += "]";
  folder.write("truth.json", R"([{"file": "a.jpg", "kind": "photo", "people": [
    {"k": )" + joints + R"(, "bbox": [80, 40, 50, 60], "crowd": false, "findable": true},
    {"k": )" + joints + R"(, "bbox": [80, 40, 50, 60], "crowd": 1}]}])");
  const LabelledPicture truth = readTruth(folder.path()).at(0).truth;
  const LabelledPerson& person = truth.people.at(0);
  EXPECT_EQ(person.mid->x, 100);
  EXPECT_EQ(person.mid->y, 80);
  EXPECT_NEAR(person.head, 21, 1e-9);  // by the way from nose to shoulders
  EXPECT_EQ(person.box->width, 50);
  EXPECT_TRUE(person.findable);
  const LabelledPerson& group = truth.people.at(1);
  EXPECT_TRUE(group.box && !group.joints && !group.mid && !group.findable);
}

TEST(LabelledPictures, BadFilesAreNamed) {
  const StateFolder folder;
  const auto complaint = [&](const auto& read) {
    try {
      read();
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string("no complaint");
  };
  const auto truth = [&] { return complaint([&] { readTruth(folder.path()); }); };
  EXPECT_NE(truth().find("truth.json: cannot be read"), std::string::npos) << truth();
  folder.write("truth.json", "{}");
  EXPECT_NE(truth().find("truth.json: must be a JSON list"), std::string::npos) << truth();
  const std::string good = R"({"file": "a.jpg", "kind": "photo", "people": []})";
  for (const std::string& bad : {std::string("7"), std::string(R"({"file": "a.jpg"})"),
                                 std::string(R"({"file": "a.jpg", "kind": "p", "people": [{"k": [[1, 2, 2]]}]})"),
                                 std::string(R"({"file": "a.jpg", "kind": "p", "people": [{"mid": [1]}]})")}) {
    folder.write("truth.json", std::string("[").append(good).append(", ").append(bad).append("]"));
    EXPECT_NE(truth().find("truth.json: picture 2: "), std::string::npos) << bad << truth();
  }
  const auto jpeg = [&] { return complaint([&] { readJpeg(folder / "a.jpg"); }); };
  folder.write("a.jpg", "no picture");
  EXPECT_NE(jpeg().find("a.jpg: is not a JPEG file"), std::string::npos) << jpeg();
  writeJpeg(folder / "a.jpg", cv::Mat(64, 64, CV_8UC3, cv::Scalar::all(9)));
  EXPECT_NE(jpeg().find("a.jpg: must be 1280x720, not 64x64"), std::string::npos) << jpeg();
}

TEST(StillRecording, ShowsEachPictureInItsTime) {
  const StateFolder folder;
  const fs::path file = folder / "pictures.mkv";
  writeStills(file, 3, [](int index) { return cv::Mat(72, 128, CV_8UC3, cv::Scalar::all(50 * (index + 1))); });
  ticker_clock::setReplayTime(TimeStamp());
  const auto camera = workstation::openCamera({.uri = file.string()}, false);
  for (int index = 0; index < 3; ++index) {
    const auto frame = camera->frameAt(TimeStamp(index * kStillLength + kStillLength / 2));
    const workstation::I420View view = frame->view();
    EXPECT_FALSE(view.full_range);
    EXPECT_NEAR(view.y[0], 16 + 50.0 * (index + 1) * 219 / 255, 1) << index;
  }
  EXPECT_THROW(writeStills("/no/such/folder/a.mkv", 1, [](int) { return cv::Mat(72, 128, CV_8UC3); }),
               std::runtime_error);
}

}  // namespace
