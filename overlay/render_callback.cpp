#include <algorithm>
#include <array>
#include <cstdio>

#include "analysis/FindingsHistory.h"
#include "app/process_state.h"
#include "app/status.h"
#include "app/truncate.h"
#include "geometry/calibrator.h"
#include "overlay/overlay_manager.h"

namespace {

constexpr int kMarkSize = 5;  // pixels of the analysis picture, of crosses and circles around a point

/// What drawing on one stream needs to know.
struct Canvas {
  RenderingContext context;
  int lineWidth;  ///< pixels of the stream
  bool isAnonymized;
};

bool isTurnedByQuarter(const axoverlay_stream_data& stream) { return stream.rotation == 90 || stream.rotation == 270; }

/// The picture is scaled to the stream's height and centred, so that what does not fit is cut off on both sides.
RenderingContext contextOf(cairo_t* cairo, const axoverlay_stream_data& stream) {
  const bool rotated = isTurnedByQuarter(stream);
  const int lastRow = (rotated ? stream.width : stream.height) - 1;
  const int lastColumn = (rotated ? stream.height : stream.width) - 1;
  const auto pictureRows = static_cast<float>(g_StreamHeight - 1);
  const auto pictureColumns = static_cast<float>(g_StreamWidth - 1);
  const auto rows = static_cast<float>(lastRow);
  const float scale = rows / pictureRows;
  const float epsilon = (pictureColumns - pictureRows / rows * static_cast<float>(lastColumn)) / 2.0F;
  return {cairo, epsilon, scale, scale, stream.mirrored != FALSE, lastColumn};
}

int personColor(const Finding& finding) {
  if (finding.footing == Footings::bed) {
    return Green;
  }
  if (finding.activity == Activity::lying_down) {
    return Orange;
  }
  return finding.activity == Activity::fallen ? Red : Yellow;
}

/// `distance` pixels beyond the top of the body, as the run that found it saw the body.
Point centreOfHead(const Skeleton& skeleton, int distance) {
  const auto moved = [](int from, std::int64_t by) {
    constexpr std::int64_t kLimit = 1 << 29;
    return static_cast<int>(std::clamp(from + by, -kLimit, kLimit));
  };
  const auto [x, y] = skeleton.superior;
  switch (skeleton.detectorRotation) {
    case 90:
      return {moved(x, -distance), moved(y, 0)};
    case 180:
      return {moved(x, 0), moved(y, distance)};
    case 270:
      return {moved(x, distance), moved(y, 0)};
    default:
      return {moved(x, 0), moved(y, -distance)};
  }
}

void drawHead(const Canvas& canvas, const Finding& finding, int color) {
  constexpr float kHeadsPerBody = 8.0F;
  constexpr int kUnknownRadius = 5;
  const Skeleton& skeleton = finding.skeleton;
  if (!skeleton.hasSuperior) {
    return;
  }
  const int radius =
      skeleton.hasSkeletonHeight ? truncateToInt(skeleton.skeletonHeight / kHeadsPerBody) : kUnknownRadius;
  const Point centre = centreOfHead(skeleton, radius);
  OverlayManager::drawCircle(canvas.context, centre, color, canvas.lineWidth, radius);
  if (finding.hasValidAverageNormalFactorVelocity) {
    const auto [vx, vy] = finding.averageNormalFactorVelocity;
    OverlayManager::drawLine(canvas.context, centre, {centre.x - truncateToInt(vx), centre.y - truncateToInt(vy)}, Blue,
                             canvas.lineWidth);
  }
}

void drawSkeleton(const Canvas& canvas, const Finding& finding, int color) {
  for (const Edge& edge : finding.skeleton.edges) {
    if (!isHead(edge)) {
      OverlayManager::drawLine(canvas.context, edge.a.point, edge.b.point, color, canvas.lineWidth);
    }
  }
  drawHead(canvas, finding, color);
  float ratio = 0.0F;
  if (finding.hasValidAverageHipMedian && finding.getTorsoToLegsRatio(ratio) && ratio < Finding::minTorsoToLegsRatio) {
    OverlayManager::drawCross(canvas.context, finding.averageHipMedian, color, canvas.lineWidth, kMarkSize);
    OverlayManager::drawCircle(canvas.context, finding.averageHipMedian, color, canvas.lineWidth, kMarkSize);
  }
}

int textHeight(cairo_t* cairo, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cairo, text.c_str(), &extents);
  return static_cast<int>(extents.height);
}

/// Torso over legs, id and score, just above the box.
void drawLabel(const Canvas& canvas, const Finding& finding) {
  constexpr int kIndent = 2;
  float ratio = 0.0F;
  finding.getTorsoToLegsRatio(ratio);
  std::array<char, 160> label{};
  std::snprintf(label.data(), label.size(), "SH/IH:%.3f ID:%d (%.3f)", static_cast<double>(ratio), finding.id,
                static_cast<double>(finding.skeleton.score));
  const RenderingContext& context = canvas.context;
  const BoundingBox& box = finding.skeleton.boundingBox;
  const int x = context.streamX(context.isMirrored ? box.bottomRight.x : box.topLeft.x) + kIndent;
  const int y = context.streamY(box.topLeft.y) - textHeight(context.pCairo, label.data()) - canvas.lineWidth;
  OverlayManager::drawText(context.pCairo, label.data(), x, y, ratio >= Finding::minTorsoToLegsRatio ? White : Red);
}

int rotationColor(int detectorRotation) {
  switch (detectorRotation) {
    case 0:
      return White;
    case 90:
      return Red;
    case 180:
      return Yellow;
    case 270:
      return Green;
    case -1:
      return Blue;
    default:
      return Black;
  }
}

/// For developers: the points from which movement and activity follow.
void drawDiagnostics(const Canvas& canvas, const Finding& finding) {
  constexpr int kThin = 2;
  const RenderingContext& context = canvas.context;
  drawLabel(canvas, finding);
  if (finding.skeleton.hasInferior) {
    OverlayManager::drawCircle(context, finding.skeleton.inferior, rotationColor(finding.skeleton.detectorRotation),
                               canvas.lineWidth, kMarkSize);
  }
  if (finding.hasValidAverageSuperior) {
    OverlayManager::drawCross(context, finding.averageSuperior, finding.isMoving ? Yellow : Orange, canvas.lineWidth,
                              kMarkSize);
  }
  if (finding.hasValidAverageInferior) {
    OverlayManager::drawCross(context, finding.averageInferior, Black, canvas.lineWidth, kMarkSize);
  }
  if (finding.hasValidAverageHipMedian) {
    OverlayManager::drawCross(context, finding.averageHipMedian, Blue, canvas.lineWidth, kMarkSize);
  }
  if (finding.hasValidExpectedSuperior && finding.hasValidExpectedInferior) {
    OverlayManager::drawLine(context, finding.expectedSuperior, finding.expectedInferior, White, kThin);
    OverlayManager::drawCircle(context, finding.expectedSuperior, White, kThin,
                               truncateToInt(finding.getExpectedSuperiorAreaRadius()));
  }
}

void drawPerson(const Canvas& canvas, const Finding& finding) {
  if (finding.footing != Footings::exclusion) {
    drawSkeleton(canvas, finding, personColor(finding));
  }
  if (g_IsDevMode || canvas.isAnonymized) {
    OverlayManager::drawRectangle(canvas.context, finding.skeleton.boundingBox, Black, canvas.lineWidth,
                                  canvas.isAnonymized);
  }
  if (g_IsDevMode) {
    drawDiagnostics(canvas, finding);
  }
}

void drawStatus(cairo_t* cairo, int bottom) {
  constexpr int kLeft = 10;
  constexpr int kBelow = 5;
  const std::string text = statusText(g_StatusCode) + " : " + std::to_string(g_ExecutionTime) + " ms";
  OverlayManager::drawTextNoOutline(cairo, text, kLeft, bottom + kBelow - textHeight(cairo, text), White);
}

void drawStakes(const RenderingContext& context) {
  constexpr int kWidth = 3;
  constexpr int kCentreSize = 10;
  OverlayManager::drawCross(context, g_StreamWidth / 2, g_StreamHeight / 2, White, kWidth, kCentreSize);
  for (const auto corner :
       {Calibrator::TopLeft, Calibrator::TopRight, Calibrator::BottomLeft, Calibrator::BottomRight}) {
    Point foot;
    Point top;
    if (g_calibrator.getStakeScreenCoordinates(corner, foot.x, foot.y, top.x, top.y)) {
      OverlayManager::drawLine(context, foot, top, White, kWidth);
    }
  }
}

int sumOf(int a, int b) {
  return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{a} + b, INT32_MIN, INT32_MAX));
}

void drawUserShapes(const RenderingContext& context) {
  for (int i = 0; i < g_nUserRectangles; ++i) {
    const auto& [rect, color, width] = g_UserRectangles[static_cast<std::size_t>(i)];
    OverlayManager::drawRectangle(context, rect.X, rect.Y, sumOf(rect.X, rect.W), sumOf(rect.Y, rect.H), color, width,
                                  false);
  }
  for (int i = 0; i < g_nUserCircles; ++i) {
    const auto& [cx, cy, radius, color, width] = g_UserCircles[static_cast<std::size_t>(i)];
    OverlayManager::drawCircle(context, cx, cy, color, width, radius);
  }
  for (int i = 0; i < g_nUserLines; ++i) {
    const auto& [x0, y0, x1, y1, color, width] = g_UserLines[static_cast<std::size_t>(i)];
    OverlayManager::drawLine(context, x0, y0, x1, y1, color, width);
  }
}

}  // namespace

void OverlayManager::renderCallback(gpointer rendering_context, gint id, axoverlay_stream_data* stream,
                                    axoverlay_position_type /*postype*/, gfloat /*overlay_x*/, gfloat /*overlay_y*/,
                                    gint /*overlay_width*/, gint /*overlay_height*/, gpointer user_data) {
  constexpr float kLineShare = 0.005F;  // of the stream's shorter side
  constexpr float kFontShare = 0.03F;
  constexpr int kThinnestLine = 3;  // pixels
  constexpr int kSmallestFont = 16;
  if (id != m_OverlayID) {
    return;  // another's overlay comes with another's data
  }
  const StreamType type = static_cast<const OverlayInfo*>(user_data)->getStreamType(
      static_cast<unsigned int>(stream->width), static_cast<unsigned int>(stream->height));
  if (type == StreamType::OtherStream) {
    return;
  }
  auto* const cairo = static_cast<cairo_t*>(rendering_context);
  const auto shorterSide = static_cast<float>(std::min(stream->width, stream->height));
  const Canvas canvas{contextOf(cairo, *stream), std::max(kThinnestLine, truncateToInt(shorterSide * kLineShare)),
                      type == StreamType::AnonymizedStream};
  cairo_set_antialias(cairo, CAIRO_ANTIALIAS_BEST);
  cairo_select_font_face(cairo, "cursive", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cairo, std::max(kSmallestFont, truncateToInt(shorterSide * kFontShare)));
  for (const int person : g_findingsHistory.getIDs()) {
    drawPerson(canvas, g_findingsHistory.getLatestFinding(person));
  }
  drawStatus(cairo, isTurnedByQuarter(*stream) ? stream->width : stream->height);
  if (g_calibrator.shouldRender()) {
    drawStakes(canvas.context);
  }
  drawUserShapes(canvas.context);
}
