// What is drawn over the camera's streams: findings, status, stakes and shapes, or masks where nobody is to be seen.
#pragma once

#include <axoverlay.h>
#include <cairo.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "app/common_structs.h"
#include "platform/support/stream_size.h"
#include "pose/skeleton.h"

using Resolution = StreamSize;

struct OverlayRenderOptions {
  bool renderOverlays = false;
  bool fillRectangles = false;

  bool operator==(const OverlayRenderOptions&) const = default;
};

/// Rendering choices of each resolution, for callers that keep some; the render callback does not ask for them.
class OverlayRenderOptionsDict {
 public:
  /// Inserts or replaces; always true.
  bool setOptions(const Resolution& resolution, const OverlayRenderOptions& options);
  /// False, with `options` untouched, when there are none for the resolution.
  bool getOptions(const Resolution& resolution, OverlayRenderOptions& options) const;
  bool getOptions(unsigned int width, unsigned int height, OverlayRenderOptions& options) const;

 private:
  std::map<Resolution, OverlayRenderOptions> m_options;
};

/// What a stream shows follows from its size.
enum class StreamType : std::int32_t {
  OtherStream = 0,        ///< nothing of ours
  ApplicationStream = 1,  ///< the same as the overlay stream
  OverlayStream = 2,      ///< findings
  AnonymizedStream = 3,   ///< findings, with a mask over every tracked person
};

/// Sizes in pixels by which streams are known; no stream has the size 0 x 0.
struct OverlayInfo {
  unsigned int appStreamWidth = kApplicationStream.width;
  unsigned int appStreamHeight = kApplicationStream.height;
  unsigned int overlayStreamWidth = 0;
  unsigned int overlayStreamHeight = 0;
  unsigned int anonymizedStreamWidth = 0;
  unsigned int anonymizedStreamHeight = 0;
  axoverlay_stream_type appStreamType = AXOVERLAY_STREAM_JPEG;
  bool renderOnUserStreams = false;

  /// Of streams of equal size the application stream comes first, then the overlay stream, then the anonymised one.
  StreamType getStreamType(unsigned int width, unsigned int height) const;
};

extern OverlayInfo g_OverlayInfo;

/// Colours are passed as int indices of this palette.
enum PaletteColors : std::int32_t {
  Black = 0,
  Red = 1,
  Green = 2,
  Blue = 3,
  Yellow = 4,
  White = 5,
  Orange = 6,
  CornflowerBlue = 7
};

/// Maps positions in the analysis picture to pixels of a stream: x becomes scaleX * (x - epsilon), y scaleY * y, both
/// truncated; where mirrored, x then becomes mirrorWidth - x. `pCairo` is borrowed.
struct RenderingContext {
  cairo_t* pCairo = nullptr;
  float epsilon = 0.0F;  ///< columns of the analysis picture left of the stream's left edge
  float scaleX = 1.0F;
  float scaleY = 1.0F;
  bool isMirrored = false;
  int mirrorWidth = 0;  ///< the stream's last column

  int streamX(int x) const;
  int streamY(int y) const;
};

/// Shapes that are drawn on every stream with overlays, in pixels of the analysis picture.
struct UserRectangle {
  rectangle rect;
  int colorIndex = Black;
  int lineWidth = 0;
};

struct UserLine {
  int x0 = 0;
  int y0 = 0;
  int x1 = 0;
  int y1 = 0;
  int colorIndex = Black;
  int lineWidth = 0;
};

struct UserCircle {
  int cx = 0;
  int cy = 0;
  int radius = 0;
  int colorIndex = Black;
  int lineWidth = 0;
};

constexpr int kMostUserShapes = 256;  ///< of each kind

extern std::array<UserRectangle, kMostUserShapes> g_UserRectangles;
extern int g_nUserRectangles;
extern std::array<UserLine, kMostUserShapes> g_UserLines;
extern int g_nUserLines;
extern std::array<UserCircle, kMostUserShapes> g_UserCircles;
extern int g_nUserCircles;

/// The program's one overlay, as large as the camera's largest stream. Without it the program runs on; failures are
/// logged. Lines, shapes and texts replace what is under them, opacity included. Positions far outside of a picture
/// are moved closer, so that a box still covers everything that it should.
class OverlayManager {
 public:
  /// Opens the overlay service, creates the overlay and has it drawn for the first time.
  OverlayManager();
  ~OverlayManager();
  OverlayManager(const OverlayManager&) = delete;
  OverlayManager& operator=(const OverlayManager&) = delete;

  /// Asks for the overlay to be drawn anew; false after a log line, or when there is none.
  bool renderFindings() const;

  /// Every size in which the camera delivers streams; empty when it does not tell.
  static std::set<Resolution> getCameraResolutions();
  /// The same as "640x360,1280x720,".
  static std::string getCamerasResolutionsAsCsv();

  /// Choose the streams by their size; 0 x 0 switches one off.
  static void SetOverlayStreamResolution(unsigned int width, unsigned int height);
  static void SetAnonymizedStreamResolution(unsigned int width, unsigned int height);
  /// The same from "1280x720", as lenient as streamSizeFrom.
  static void SetOverlayStreamResolutionFromString(const std::string& text);
  static void SetAnonymizedStreamResolutionFromString(const std::string& text);

  /// The identifier of a new overlay at the top left; 0 after a log line.
  static int createOverlay(int width, int height);

  // What the overlay service calls, on the main loop's thread.
  static void adjustmentCallback(gint id, axoverlay_stream_data* stream, axoverlay_position_type* postype,
                                 gfloat* overlay_x, gfloat* overlay_y, gint* overlay_width, gint* overlay_height,
                                 gpointer user_data);
  static gboolean selectStreamCallback(gint camera, gint width, gint height, gint rotation, gboolean is_mirrored,
                                       axoverlay_stream_type type);
  /// `user_data` points to the OverlayInfo by which the stream is known.
  static void renderCallback(gpointer rendering_context, gint id, axoverlay_stream_data* stream,
                             axoverlay_position_type postype, gfloat overlay_x, gfloat overlay_y, gint overlay_width,
                             gint overlay_height, gpointer user_data);

  /// Makes a colour the source of what is drawn next; alpha from 0 to 1. An unknown index is logged and black.
  static void usePaletteColor(cairo_t* cairo, int colorIndex, double alpha);
  /// Squares of 4 x 4 pixels, white and the colour where it is Red, Green, Yellow or Orange, else gray. The caller
  /// releases it with cairo_pattern_destroy.
  static cairo_pattern_t* getCheckeredPattern(int colorIndex);

  // In pixels of the stream.
  static void drawLine(cairo_t* cairo, int x0, int y0, int x1, int y1, int color, int width);
  /// `size` is half the length of either stroke.
  static void drawCross(cairo_t* cairo, int x, int y, int color, int width, float size);
  static void drawCircle(cairo_t* cairo, int x, int y, int color, int width, float radius, bool fill = false);
  /// Filled with the checkered pattern of its colour.
  static void drawRectangle(cairo_t* cairo, int x0, int y0, int x1, int y1, int color, int width, bool fill);
  /// A square around (x, y).
  static void drawBox(cairo_t* cairo, int x, int y, int color, int width, int half);
  /// In the font and size that the context has; (x, y) is the left end of the baseline. With a black outline.
  static void drawText(cairo_t* cairo, const std::string& text, int x, int y, int color);
  /// The same, outlined in its own colour.
  static void drawTextNoOutline(cairo_t* cairo, const std::string& text, int x, int y, int color);

  // In pixels of the analysis picture. Line widths are those of the stream.
  static void drawLine(const RenderingContext& context, int x0, int y0, int x1, int y1, int color, int width);
  static void drawLine(const RenderingContext& context, const Point& from, const Point& to, int color, int width);
  static void drawCross(const RenderingContext& context, int x, int y, int color, int width, int size);
  static void drawCross(const RenderingContext& context, const Point& at, int color, int width, int size);
  static void drawCircle(const RenderingContext& context, int x, int y, int color, int width, int radius);
  static void drawCircle(const RenderingContext& context, const Point& at, int color, int width, int radius);
  static void drawRectangle(const RenderingContext& context, int x0, int y0, int x1, int y1, int color, int width,
                            bool fill);
  static void drawRectangle(const RenderingContext& context, const BoundingBox& box, int color, int width, bool fill);

  /// "1 second", "59 seconds", "1 minute", "2 minutes": whole minutes from 60 seconds on.
  static std::string secondsToTimeText(int seconds);

  // Shapes beyond kMostUserShapes of a kind are logged and dropped.
  static void addUserRectangle(int x, int y, int w, int h, int color, int width);
  static void addUserLine(int x0, int y0, int x1, int y1, int color, int width);
  static void addUserCircle(int cx, int cy, int radius, int color, int width);
  static void clearUserRectangles();
  /// Removes shapes of all kinds.
  static void clearUserOverlays();

 private:
  void close();

  static int m_OverlayID;
  bool m_isOpen = true;  ///< false once the service has been given up
};

extern std::unique_ptr<OverlayManager> g_overlayManager;
