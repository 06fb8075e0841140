#include "platform/workstation/decoding/source/stream_codec.h"

#include <gst/pbutils/pbutils.h>

#include <cstring>
#include <memory>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/frames/decoded_frame.h"

namespace workstation {
namespace {

bool decodesPictures(GstElement* element) {
  const char* kind = gst_element_get_metadata(element, GST_ELEMENT_METADATA_KLASS);
  return kind != nullptr &&
         (std::strstr(kind, "Decoder/Video") != nullptr || std::strstr(kind, "Decoder/Image") != nullptr);
}

void noteCodec(const GValue* item, gpointer text) {
  auto* const element = GST_ELEMENT(g_value_get_object(item));
  if (!decodesPictures(element)) return;
  const GstPtr<GstPad> input(gst_element_get_static_pad(element, "sink"));
  const GstPtr<GstCaps> caps(input ? gst_pad_get_current_caps(input.get()) : nullptr);
  const GLibPtr<gchar> codec(caps ? gst_pb_utils_get_codec_description(caps.get()) : nullptr);
  if (codec) *static_cast<std::string*>(text) = codec.get();
}

}  // namespace

std::string codecIn(GstElement* pipeline) {
  std::string codec;
  const std::unique_ptr<GstIterator, decltype(&gst_iterator_free)> all(gst_bin_iterate_recurse(GST_BIN(pipeline)),
                                                                       &gst_iterator_free);
  while (gst_iterator_foreach(all.get(), noteCodec, &codec) == GST_ITERATOR_RESYNC) gst_iterator_resync(all.get());
  return codec;
}

std::string missingIn(GstMessage* message) {
  if (gst_is_missing_plugin_message(message) == FALSE) return "";
  const GLibPtr<gchar> detail(gst_missing_plugin_message_get_installer_detail(message));
  return detail ? detail.get() : "";
}

}  // namespace workstation
