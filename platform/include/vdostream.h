// The camera's video service: frames and stream settings.
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

/// Reference-counted GObjects; release each with g_object_unref.
typedef struct _VdoMap VdoMap;
typedef struct _VdoStream VdoStream;
typedef struct _VdoBuffer VdoBuffer;
typedef struct _VdoChannel VdoChannel;

/// Pixel formats of the "format" setting.
typedef enum {
  VDO_FORMAT_YUV = 3,  ///< NV12: a Y plane, then interleaved U, V at half size; strides equal the width
} VdoFormat;

typedef struct {
  guint32 width;
  guint32 height;
} VdoResolution;

/// `count` resolutions, in no particular order. Release with g_free.
typedef struct {
  gsize count;
  __extension__ VdoResolution resolutions[];
} VdoResolutionSet;

/// Called when a buffer is released for good. Ownership of the buffer stays with the service.
typedef void (*VdoBufferFinalizer)(VdoBuffer* buffer);

/// An empty settings map; the caller owns it.
VdoMap* vdo_map_new(void);
void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value);
/// The value stored under name, or fallback when there is none.
guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 fallback);

/// The camera's video channels; release with g_list_free_full(list, g_object_unref). NULL and an error on failure.
GList* vdo_channel_get_all(GError** error);
/// What sizes a channel's streams may have. `filter` may be NULL. NULL and an error on failure.
VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* self, VdoMap* filter, GError** error);

/// Creates a stream from "channel", "format", "width", "height" and "rotation" (degrees clockwise). With a rotation
/// of 90 or 270 buffers hold a picture of "height" columns and "width" rows. NULL and an error on failure.
VdoStream* vdo_stream_new(VdoMap* settings, VdoBufferFinalizer finalizer, GError** error);
gboolean vdo_stream_attach(VdoStream* self, VdoMap* settings, GError** error);
/// A new map with the stream's actual "width", "height", "rotation" and "framerate"; the caller owns it.
VdoMap* vdo_stream_get_settings(VdoStream* self, GError** error);
gboolean vdo_stream_start(VdoStream* self, GError** error);
/// The newest frame at the camera's clock, without waiting. Hand it back with vdo_stream_buffer_unref.
VdoBuffer* vdo_stream_get_buffer(VdoStream* self, GError** error);
/// The frame's bytes; valid until the buffer is handed back.
gpointer vdo_buffer_get_data(VdoBuffer* self);
/// Hands the buffer back and clears the pointer.
gboolean vdo_stream_buffer_unref(VdoStream* self, VdoBuffer** buffer, GError** error);

G_END_DECLS
