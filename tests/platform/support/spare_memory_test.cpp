// Memory that is kept for the next picture: the same again, never what is in use, and no more than is said.
#include "platform/support/spare_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kPicture = 3 * kLargeMemory;  // of four

TEST(SpareMemory, IsTakenAgainByWhoNeedsAboutAsMuch) {
  void* const first = takeMemory(kPicture);
  void* const second = takeMemory(kPicture);
  EXPECT_NE(first, second) << "it is still in use";
  giveMemory(first, kPicture);
  void* const larger = takeMemory(5 * kLargeMemory);
  EXPECT_NE(larger, first) << "which is too small";
  void* const again = takeMemory(kPicture + kLargeMemory);
  EXPECT_EQ(again, first);
  std::memset(again, 1, kPicture + kLargeMemory);
  giveMemory(second, kPicture);
  giveMemory(again, kPicture + kLargeMemory);
  EXPECT_EQ(takeMemory(kPicture), again) << "the newest first";
  giveMemory(again, kPicture);
  giveMemory(larger, 5 * kLargeMemory);
}

TEST(SpareMemory, KeepsNoMoreThanItSays) {
  constexpr std::size_t kQuarter = kMostSpare / 4;
  std::vector<void*> taken(5);
  std::generate(taken.begin(), taken.end(), [] { return takeMemory(kQuarter); });
  for (void* memory : taken) giveMemory(memory, kQuarter);
  std::vector<void*> again(4);
  std::generate(again.begin(), again.end(), [] { return takeMemory(kQuarter); });
  std::reverse(again.begin(), again.end());
  EXPECT_EQ(again, (std::vector<void*>(taken.begin() + 1, taken.end()))) << "all but the oldest, the newest first";
  for (void* memory : again) giveMemory(memory, kQuarter);
  giveMemory(takeMemory(kMostSpare + 1), kMostSpare + 1);
  EXPECT_EQ(takeMemory(kQuarter), taken.back()) << "what is larger than all that is kept drives nothing out";
  giveMemory(taken.back(), kQuarter);
}

TEST(SpareMemory, ShowsNothingOfThePictureBefore) {
  { PictureBytes room(kPicture, 77); }
  const PictureBytes overlay(kPicture, 0);
  EXPECT_EQ(std::count(overlay.begin(), overlay.end(), 0), static_cast<std::ptrdiff_t>(kPicture));
}

TEST(SpareMemory, BelongsToOneThreadAtATime) {
  const auto use = [](std::uint8_t mark) {
    for (int round = 0; round < 25; ++round) {
      const PictureBytes picture(kLargeMemory, mark);
      ASSERT_TRUE(std::all_of(picture.begin(), picture.end(), [mark](std::uint8_t byte) { return byte == mark; }));
    }
  };
  std::thread other(use, std::uint8_t{1});
  use(2);
  other.join();
}

}  // namespace
