#include "platform/workstation/sight/sight.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace workstation {
namespace {

using namespace std::chrono_literals;

// Each fault has two limits: beyond the first it begins, within the second it ends. What people, lamps and the sun do
// to the recordings that docs/sight.md names stays away from the first.

/// Grey levels between the darkest and the brightest hundredth of the room, without what noise makes of them; a room at
/// night in which people are found still has 17.
constexpr double kDarkContrast = 11;
constexpr double kSeenContrast = 14;
/// Of the noise: 98 of 100 of a normal distribution, a cell being sixteen pixels.
constexpr double kNoiseInCells = 4.65 / 4;
/// A uniform picture that is brighter is not dark but covered.
constexpr double kDarkBright = 70;
constexpr double kSeenBright = 85;

/// Share of the tiles with edges that have lost them. A lamp that goes out takes three quarters of them at most, but
/// leaves more than a few, and a person as near as a camera on a wall allows half.
constexpr double kCovered = 0.8;
constexpr double kUncovered = 0.65;
constexpr int kFewTextured = 20;  ///< tiles with edges that a cover may leave
constexpr float kLostTexture = 0.25F;
constexpr float kHasTexture = 0.08F;  ///< share of a tile's cells with an edge
/// What is blurred still has its light and dark where they were; what covers the lens has not.
constexpr double kSameShade = 0.75;

/// Of the usual sharpness above that of a picture without any detail. The networks look at every fifth pixel of 1280:
/// a blur of 8 pixels (standard deviation) leaves 0.04 to 0.1 and costs them, one of 4 leaves 0.2 and does not.
constexpr double kBlurred = 0.14;
constexpr double kFocused = 0.18;
constexpr double kNoDetail = 0.25;
constexpr double kUsualSharpness = 0.5;   ///< of a camera of which nothing is known
constexpr double kFadedSharpness = 0.85;  ///< of that at the calibration, what is taken for usual at least
constexpr int kFewestStrongCells = 40;
constexpr double kFocusContrast = 25;  ///< grey levels; less tells nothing

/// Pixels of 1280. A turn by 0.4 degrees or a push by 4 cm at 4 m; a camera in its place is within 2.
constexpr double kMovedPixels = 4;
constexpr double kPlacePixels = 2.5;
constexpr int kFewestWindows = 5;
constexpr double kAgree = 0.6;    ///< of the windows found: a bed that is pushed moves fewer
constexpr double kAgainst = 0.3;  ///< of the windows found, that stay where they were while others move
constexpr double kSeen = 0.3;     ///< of all windows, to say anything
constexpr double kGone = 0.2;     ///< of all windows: if fewer are found in a picture full of edges, it is of elsewhere
constexpr double kStillTextured = 0.7;
constexpr int kManyWindows = 8;

constexpr auto kAveraged = 4s;  ///< of pictures, for edges: who walks leaves none
constexpr auto kCompareEvery = 1900ms;
constexpr auto kGatherFor = 60s;
constexpr int kGatherPictures = 25;  ///< at least, on a machine whose cycles take long
constexpr int kUsualPictures = 10;   ///< until what is usual is known
constexpr int kMostUsualPictures = 240;

constexpr auto kRemembered = 30s;  ///< times of capture
constexpr auto kRateOver = 2s;
constexpr double kSlowest = 0.2;  ///< of the time that passes, that a clock of capture may go on by

template <typename One, typename Other>
double correlation(const One& one, const Other& other) {
  double one_mean = 0;
  double other_mean = 0;
  for (std::size_t i = 0; i < kBlocks; ++i) {
    one_mean += static_cast<double>(one.at(i)) / kBlocks;
    other_mean += static_cast<double>(other.at(i)) / kBlocks;
  }
  double both = 0;
  double ones = 1e-9;
  double others = 1e-9;
  for (std::size_t i = 0; i < kBlocks; ++i) {
    const double a = static_cast<double>(one.at(i)) - one_mean;
    const double b = static_cast<double>(other.at(i)) - other_mean;
    both += a * b;
    ones += a * a;
    others += b * b;
  }
  return both / std::sqrt(ones * others);
}

int texturedTiles(const Look& look) {
  return static_cast<int>(
      std::count_if(look.texture.begin(), look.texture.end(), [](float share) { return share >= kHasTexture; }));
}

}  // namespace

Sight::Sight() : m_latches{Latch{3s, 2s}, Latch{3s, 3s}, Latch{3s, 3s}, Latch{3s, 3s}, Latch{24s, 12s}} {}

void Sight::Latch::take(Verdict verdict, Time time) {
  constexpr int kFewestPictures = 3;
  if (verdict != (since ? Verdict::kWell : Verdict::kWrong)) {
    other_since.reset();
    return;
  }
  if (!other_since) {
    other_since = time;
    pictures = 0;
  }
  if (++pictures < kFewestPictures || time - *other_since < (since ? end : begin)) return;
  since = since ? std::nullopt : other_since;
  other_since.reset();
}

void Sight::Usual::learn(const Look& look) {
  pictures = std::min(pictures + 1, kMostUsualPictures);
  const float share = 1.0F / static_cast<float>(pictures);
  for (std::size_t i = 0; i < kTiles; ++i) texture.at(i) += share * (look.texture.at(i) - texture.at(i));
  for (std::size_t i = 0; i < kBlocks; ++i) {
    shade.at(i) += share * (static_cast<float>(look.shade.at(i)) - shade.at(i));
  }
  if (look.strong_cells >= kFewestStrongCells) {
    sharpness = sharpness == 0 ? look.sharpness : sharpness + static_cast<double>(share) * (look.sharpness - sharpness);
  }
}

void Sight::take(const Look& look, const Times& times) {
  if (times.taken != m_last_taken) latch(SightFault::kFrozen).take(frozen(times), times.taken);
  const Verdict dark = darkness(look);
  const bool sees_light = dark == Verdict::kWell;
  const Verdict covered = sees_light ? cover(look) : Verdict::kDoubtful;
  const Verdict blurred = sees_light && covered != Verdict::kWrong ? blur(look) : Verdict::kDoubtful;
  latch(SightFault::kTooDark).take(dark, times.taken);
  // Of a dark picture nobody knows whether it is covered as well: darkness takes the place of both.
  latch(SightFault::kCovered).take(dark == Verdict::kWrong ? Verdict::kWell : covered, times.taken);
  latch(SightFault::kOutOfFocus)
      .take(dark == Verdict::kWrong || covered == Verdict::kWrong ? Verdict::kWell : blurred, times.taken);
  m_shade_now = look.shade;
  const bool is_well = sees_light && covered == Verdict::kWell && blurred == Verdict::kWell && !isBlind();
  if (is_well) {
    m_usual.learn(look);
    m_shade_well = look.shade;
    follow(look, times.taken);
  } else {
    m_grey.clear();
  }
  m_last_taken = times.taken;
}

bool Sight::isBlind() const {
  return latch(SightFault::kTooDark).since || latch(SightFault::kCovered).since || latch(SightFault::kOutOfFocus).since;
}

void Sight::setReference(std::optional<RoomReference> reference) {
  m_wants_reference = true;
  m_reference = std::move(reference);
  m_matcher.reset();
  m_gatherer.reset();
  m_displacement = {};
  if (m_reference) m_matcher.emplace(m_reference->edges);
  Latch& moved = latch(SightFault::kMoved);
  moved.since.reset();
  moved.other_since.reset();
}

Sight::Verdict Sight::darkness(const Look& look) const {
  const double contrast = look.bright - look.dark - kNoiseInCells * look.noise;
  if (contrast < kDarkContrast && look.bright < kDarkBright) return Verdict::kWrong;
  return contrast > kSeenContrast || look.bright > kSeenBright ? Verdict::kWell : Verdict::kDoubtful;
}

double Sight::likeness(const Look& look) const {
  if (m_usual.pictures >= kUsualPictures) return correlation(look.shade, m_usual.shade);
  return m_reference ? correlation(look.shade, m_reference->shade) : 0;
}

/// Share of the tiles with edges that have lost them.
double Sight::lost(const Look& look) const {
  if (m_usual.pictures < kUsualPictures) {
    const int expected = m_reference ? m_reference->textured : static_cast<int>(kTiles) / 4;
    return expected == 0 ? 0 : 1 - std::min(1.0, static_cast<double>(texturedTiles(look)) / expected);
  }
  int all = 0;
  int gone = 0;
  for (std::size_t tile = 0; tile < kTiles; ++tile) {
    if (m_usual.texture.at(tile) < kHasTexture) continue;
    ++all;
    if (look.texture.at(tile) < kLostTexture * m_usual.texture.at(tile)) ++gone;
  }
  return all == 0 ? 0 : static_cast<double>(gone) / all;
}

Sight::Verdict Sight::cover(const Look& look) const {
  const double share = lost(look);
  const int textured = texturedTiles(look);
  if (share >= kCovered && textured <= kFewTextured && likeness(look) < kSameShade) return Verdict::kWrong;
  return share < kUncovered || textured > 2 * kFewTextured ? Verdict::kWell : Verdict::kDoubtful;
}

/// 1 for the usual sharpness, 0 for no detail at all.
double Sight::sharpnessShare(const Look& look) const {
  double usual = m_usual.pictures >= kUsualPictures && m_usual.sharpness > 0 ? m_usual.sharpness : 0;
  if (m_reference) usual = std::max(usual, kFadedSharpness * m_reference->sharpness);
  if (usual == 0) usual = kUsualSharpness;
  return (look.sharpness - kNoDetail) / std::max(usual - kNoDetail, 0.05);
}

Sight::Verdict Sight::blur(const Look& look) const {
  if (look.bright - look.dark < kFocusContrast + kNoiseInCells * look.noise) return Verdict::kWell;
  if (look.strong_cells < kFewestStrongCells) {
    const bool is_gone = lost(look) >= kCovered && texturedTiles(look) <= kFewTextured;
    return is_gone ? (likeness(look) >= kSameShade ? Verdict::kWrong : Verdict::kDoubtful) : Verdict::kWell;
  }
  const double share = sharpnessShare(look);
  return share < kBlurred ? Verdict::kWrong : share > kFocused ? Verdict::kWell : Verdict::kDoubtful;
}

/// Frames that come with times of capture which do not go on, or have been there before. A clock that jumps goes on.
Sight::Verdict Sight::frozen(const Times& times) {
  if (!times.captured) return Verdict::kWell;
  const auto now = *times.captured;
  while (!m_captured.empty() && times.taken - m_captured.front().second > kRemembered) m_captured.pop_front();
  const bool has_been =
      std::any_of(m_captured.begin(), m_captured.end(), [now](const auto& one) { return one.first == now; });
  if (has_been) return Verdict::kWrong;
  if (!m_captured.empty() && now < m_captured.back().first) m_captured.clear();
  m_captured.emplace_back(now, times.taken);
  const auto before = std::find_if(m_captured.rbegin(), m_captured.rend(),
                                   [&times](const auto& one) { return times.taken - one.second >= kRateOver; });
  if (before == m_captured.rend()) return Verdict::kWell;
  const double passed = std::chrono::duration<double>(times.taken - before->second).count();
  return std::chrono::duration<double>(now - before->first).count() < kSlowest * passed ? Verdict::kWrong
                                                                                        : Verdict::kWell;
}

/// Averages what was seen lately, and compares its edges with the reference or makes one of them.
void Sight::follow(const Look& look, Time time) {
  if (m_grey.empty()) {
    m_grey.assign(look.grey.begin(), look.grey.end());
    m_grey_noise = 1;
    m_followed_since = m_compared = time;
    return;
  }
  const double passed = std::chrono::duration<double>(time - m_last_taken).count();
  const auto share = static_cast<float>(1 - std::exp(-passed / std::chrono::duration<double>(kAveraged).count()));
  for (std::size_t i = 0; i < m_grey.size(); ++i) m_grey[i] += share * (static_cast<float>(look.grey[i]) - m_grey[i]);
  m_grey_noise = m_grey_noise * (1 - share) * (1 - share) + share * share;
  if (time - m_followed_since < 2 * kAveraged || time - m_compared < kCompareEvery) return;
  m_compared = time;
  std::vector<std::uint8_t> grey(m_grey.size());
  std::transform(m_grey.begin(), m_grey.end(), grey.begin(),
                 [](float level) { return static_cast<std::uint8_t>(std::lround(level)); });
  m_now = {kCellColumns, kCellRows, edgesOf(grey, look.noise / 2 * std::sqrt(static_cast<double>(m_grey_noise)))};
  if (m_matcher) {
    latch(SightFault::kMoved).take(displaced(look), time);
  } else if (m_wants_reference) {
    gather(time);
  }
}

Sight::Verdict Sight::displaced(const Look& look) {
  m_displacement = m_matcher->compare(m_now);
  const auto& [windows, found, agreeing, against, pixels, nearby] = m_displacement;
  if (windows < kFewestWindows) return Verdict::kDoubtful;
  if (agreeing >= std::max(3.0, kSeen * windows) && agreeing >= kAgree * found && against <= kAgainst * found) {
    return pixels >= kMovedPixels ? Verdict::kWrong : pixels <= kPlacePixels ? Verdict::kWell : Verdict::kDoubtful;
  }
  const bool is_elsewhere = m_matcher->windows() >= kManyWindows && nearby < kGone &&
                            texturedTiles(look) >= kStillTextured * m_reference->textured;
  return is_elsewhere ? Verdict::kWrong : Verdict::kDoubtful;
}

/// A camera that is turned meanwhile, or a room with nothing to hold on to, begins anew.
void Sight::gather(Time time) {
  if (!m_gatherer) {
    m_gatherer.emplace();
    m_gathering_since = time;
  }
  m_gatherer->add(m_now);
  if (time - m_gathering_since < kGatherFor || m_gatherer->pictures() < kGatherPictures) return;
  RoomReference reference;
  reference.edges = m_gatherer->edges(m_hidden);
  const RoomMatcher matcher(reference.edges);
  const Displacement displacement = matcher.compare(m_now);
  m_gatherer.reset();
  if (matcher.windows() < kFewestWindows || displacement.agreeing < kAgree * displacement.windows ||
      displacement.pixels > kPlacePixels) {
    return;
  }
  std::transform(m_usual.shade.begin(), m_usual.shade.end(), reference.shade.begin(),
                 [](float level) { return static_cast<std::uint8_t>(std::lround(level)); });
  reference.sharpness = m_usual.sharpness;
  reference.textured = static_cast<int>(
      std::count_if(m_usual.texture.begin(), m_usual.texture.end(), [](float share) { return share >= kHasTexture; }));
  setReference(std::move(reference));
}

}  // namespace workstation
