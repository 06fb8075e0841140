#include "platform/workstation/views/own_view.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <iterator>
#include <tuple>
#include <utility>
#include <variant>

#include "platform/clock/clock.h"
#include "platform/workstation/trace/trace_listener.h"
#include "platform/workstation/trace/trace_reader.h"
#include "platform/workstation/views/cairo_owners.h"

namespace workstation {
namespace {

constexpr const char* kJustOpened = "The next picture is being analysed.";
constexpr const char* kUnknownPeople = "Where people are is not known just now.";
constexpr std::uint8_t kMask[] = {0x6C, 0x64, 0x60, 0xFF};  // B, G, R, A
constexpr double kMaskMargin = 2;                           // pixels, for what the roundings take

/// None where a person has no box, or the cycle has failed: nobody knows then who is where.
std::shared_ptr<const SeenPeople> peopleOf(const TraceCycle& cycle, StreamSize picture) {
  if (cycle.failed) return nullptr;
  auto seen = std::make_shared<SeenPeople>(SeenPeople{picture, {}});
  for (const TracePerson& person : cycle.people) {
    if (person.box.size() != 4) return nullptr;
    seen->boxes.push_back({person.box[0], person.box[1], person.box[2], person.box[3]});
  }
  return seen;
}

/// How something of another size is laid over a picture.
struct Laid {
  double scale = 1;
  double left = 0;  ///< where its left edge comes to lie
};

Laid laidOver(const BgraPicture& picture, double width, double height) {
  const double scale = picture.height / height;
  return {scale, (picture.width - width * scale) / 2};
}

/// From the first to behind the last pixel that the stretch touches.
std::pair<int, int> pixelsOf(double from, double to, int length) {
  const auto within = [length](double place) {
    return static_cast<int>(std::clamp(place, 0.0, static_cast<double>(length)));
  };
  return {within(std::floor(from - kMaskMargin)), within(std::ceil(to + kMaskMargin))};
}

void cover(BgraPicture& picture, const PersonBox& box, const Laid& laid, bool mirrored) {
  auto [left, right] = pixelsOf(laid.left + std::min(box.left, box.right) * laid.scale,
                                laid.left + (std::max(box.left, box.right) + 1) * laid.scale, picture.width);
  if (mirrored) std::tie(left, right) = std::pair(picture.width - right, picture.width - left);
  const auto [top, bottom] = pixelsOf(std::min(box.top, box.bottom) * laid.scale,
                                      (std::max(box.top, box.bottom) + 1) * laid.scale, picture.height);
  for (int y = top; y < bottom; ++y) {
    std::uint8_t* const row = picture.bytes.data() + std::ptrdiff_t{y} * picture.stride();
    for (int x = left; x < right; ++x) std::copy(std::begin(kMask), std::end(kMask), row + std::ptrdiff_t{x} * 4);
  }
}

void paintScaled(BgraPicture& picture, BgraPicture overlay) {
  const Laid laid = laidOver(picture, overlay.width, overlay.height);
  const CairoSurface target(cairo_image_surface_create_for_data(picture.bytes.data(), CAIRO_FORMAT_ARGB32,
                                                                picture.width, picture.height, picture.stride()));
  const CairoSurface source(cairo_image_surface_create_for_data(overlay.bytes.data(), CAIRO_FORMAT_ARGB32,
                                                                overlay.width, overlay.height, overlay.stride()));
  const CairoContext cairo(cairo_create(target.get()));
  cairo_translate(cairo.get(), laid.left, 0);
  cairo_scale(cairo.get(), laid.scale, laid.scale);
  cairo_set_source_surface(cairo.get(), source.get(), 0, 0);
  cairo_paint(cairo.get());
  cairo_surface_flush(target.get());
}

[[maybe_unused]] const bool is_told = (setTraceListener([](const std::string& lines) {
                                         ownView().takeTrace(lines, ticker_clock::currentTick(), OwnView::Clock::now());
                                       }),
                                       true);

}  // namespace

void OwnView::watch() {
  if (m_watchers++ == 0) m_view.drop(kJustOpened);
}

void OwnView::draw(const CycleFrames::Frame& frame, std::shared_ptr<const BgraPicture> overlay, std::uint64_t cycle) {
  if (m_drawn) m_view.drop(kUnknownPeople);  // its cycle has never told
  m_drawn = Drawn{{frame, std::move(overlay), nullptr}, cycle};
}

void OwnView::takeTrace(const std::string& lines, std::uint64_t cycle, Clock::time_point now) {
  if (m_analysed && !isWatched()) return m_drawn.reset();
  for (std::size_t from = 0, end = 0; (end = lines.find('\n', from)) != std::string::npos; from = end + 1) {
    takeLine(std::string_view(lines).substr(from, end - from), cycle, now);
  }
}

void OwnView::takeLine(std::string_view line, std::uint64_t cycle, Clock::time_point now) try {
  const TraceLine told = parseTraceLine(line);
  if (const auto* header = std::get_if<TraceHeader>(&told)) {
    m_analysed = {static_cast<std::uint32_t>(header->width), static_cast<std::uint32_t>(header->height)};
  }
  const auto* people = std::get_if<TraceCycle>(&told);
  if (people == nullptr || !m_analysed || !m_drawn || m_drawn->cycle != cycle) return;
  m_drawn->picture.people = peopleOf(*people, *m_analysed);
  if (!m_drawn->picture.people) return;
  m_view.show(std::exchange(m_drawn, std::nullopt)->picture, {}, now);
} catch (const std::exception&) {
  return;  // what cannot be read tells of nobody: the next cycle finds this one untold
}

void OwnView::drop() {
  m_drawn.reset();
  m_view.drop();
}

OwnView& ownView() {
  static auto& view = *new OwnView;  // never destroyed: threads may ask until the process ends
  return view;
}

BgraPicture coveringOverlay(const AnalysedPicture& analysed, StreamSize size, Mounting mounting) {
  const StreamSize shown = shownSize(size, mounting.rotation);
  BgraPicture picture(static_cast<int>(shown.width), static_cast<int>(shown.height));
  const SeenPeople& people = *analysed.people;
  const Laid laid = laidOver(picture, people.picture.width, people.picture.height);
  for (const PersonBox& box : people.boxes) cover(picture, box, laid, mounting.mirrored);
  if (analysed.overlay) paintScaled(picture, *analysed.overlay);
  return picture;
}

}  // namespace workstation
