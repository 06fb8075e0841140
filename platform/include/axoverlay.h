// The camera's overlays: transparent pictures that the application draws over the video streams.
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

enum axoverlay_backend_type { AXOVERLAY_CAIRO_IMAGE_BACKEND = 0 };

enum axoverlay_position_type { AXOVERLAY_CUSTOM_NORMALIZED = 0 };  ///< -1 to 1 in both directions

enum axoverlay_anchor_point { AXOVERLAY_ANCHOR_TOP_LEFT = 0, AXOVERLAY_ANCHOR_CENTER = 1 };

enum axoverlay_color_space { AXOVERLAY_COLORSPACE_ARGB32 = 0 };

enum axoverlay_stream_type {
  AXOVERLAY_STREAM_JPEG = 0,
  AXOVERLAY_STREAM_H264 = 1,
  AXOVERLAY_STREAM_H265 = 2,
  AXOVERLAY_STREAM_YCBCR = 3,
  AXOVERLAY_STREAM_OTHER = 4,
};

/// A stream that shows the overlay. Width and height are those it is asked for by, before any turning: a viewer of a
/// stream of 1280x720 that is turned by 90 degrees sees 720 columns and 1280 rows.
struct axoverlay_stream_data {
  gint id;
  gint camera;
  gint width;
  gint height;
  gint rotation;      ///< degrees clockwise: 0, 90, 180 or 270
  gboolean mirrored;  ///< left and right are exchanged, after the turning
  enum axoverlay_stream_type type;
};

/// Draws on a transparent picture of overlay_width x overlay_height; `rendering_context` is a cairo_t*, borrowed.
typedef void (*axoverlay_render_function)(gpointer rendering_context, gint id, struct axoverlay_stream_data* stream,
                                          enum axoverlay_position_type postype, gfloat overlay_x, gfloat overlay_y,
                                          gint overlay_width, gint overlay_height, gpointer user_data);
/// Sets the overlay's place and size for a stream before it is drawn.
typedef void (*axoverlay_adjustment_function)(gint id, struct axoverlay_stream_data* stream,
                                              enum axoverlay_position_type* postype, gfloat* overlay_x,
                                              gfloat* overlay_y, gint* overlay_width, gint* overlay_height,
                                              gpointer user_data);
/// TRUE for streams that are to show overlays.
typedef gboolean (*axoverlay_stream_select_function)(gint camera, gint width, gint height, gint rotation,
                                                     gboolean is_mirrored, enum axoverlay_stream_type type);

struct axoverlay_settings {
  axoverlay_render_function render_callback;
  axoverlay_adjustment_function adjustment_callback;
  axoverlay_stream_select_function select_callback;
  enum axoverlay_backend_type backend;
};

struct axoverlay_overlay_data {
  enum axoverlay_position_type postype;
  enum axoverlay_anchor_point anchor_point;
  gfloat x;
  gfloat y;
  gint width;
  gint height;
  enum axoverlay_color_space colorspace;
  gboolean scale_to_stream;
};

gboolean axoverlay_is_backend_supported(enum axoverlay_backend_type backend);
/// All callbacks NULL, the backend the first.
void axoverlay_init_axoverlay_settings(struct axoverlay_settings* settings);
/// Everything 0.
void axoverlay_init_overlay_data(struct axoverlay_overlay_data* data);

/// The settings are copied. All callbacks come on the main loop's thread.
void axoverlay_init(struct axoverlay_settings* settings, GError** error);
void axoverlay_cleanup(void);
/// The largest width and height that a stream of the camera (from 1) has; 0 and an error on failure.
gint axoverlay_get_max_resolution_width(gint camera, GError** error);
gint axoverlay_get_max_resolution_height(gint camera, GError** error);

/// The identifier of the new overlay, positive; `user_data` is borrowed and handed to the callbacks.
gint axoverlay_create_overlay(struct axoverlay_overlay_data* data, gpointer user_data, GError** error);
void axoverlay_destroy_overlay(gint id, GError** error);
/// Asks for all overlays to be drawn anew on the pictures that were taken last.
void axoverlay_redraw(GError** error);

G_END_DECLS
