// What comes in on its way to the decoder: when each picture arrived, and what is too much.
#pragma once

#include <gst/gst.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace workstation {

/// The largest pictures that are decoded, in pixels: those of cameras of 12 megapixels. A frame of them takes 19 MB,
/// and a decoder may keep seventeen; the analysis sees 1280 x 720 of it.
inline constexpr std::int64_t kMostPixels = std::int64_t{4096} * 3072;
inline constexpr int kLongestSide = 8192;

/// Watches one pipeline from its making to its end. A stream that states a picture of more pixels, or sends more bytes
/// for one than any has, breaks it with one line. Of a network's stream that is watched live what is too much is left
/// out before it is decoded: more than kMostFrames a second in the long run, and what has waited for the decoder for
/// too long; both up to the next picture that can be decoded without those before it.
class StreamWatch {
 public:
  using Steady = std::chrono::steady_clock::time_point;

  static constexpr int kMostFrames = 60;

  /// Before the pipeline gets any element that matters. Borrows both; must outlive the pipeline's playing. The sink is
  /// asked to show pictures as they come, where those have no times.
  StreamWatch(GstElement* pipeline, GstElement* sink, bool is_live);
  ~StreamWatch();
  StreamWatch(const StreamWatch&) = delete;
  StreamWatch& operator=(const StreamWatch&) = delete;

  /// When the picture with this time stamp reached this machine, as far as that is known; else now.
  Steady arrivalOf(GstClockTime stamp);
  /// Why pictures have been left out lately; empty where none have.
  std::string leftOut();

 private:
  static void onElement(GstBin* bin, GstBin* parent, GstElement* element, gpointer self);
  static void onPad(GstElement* source, GstPad* pad, gpointer self);
  static GstPadProbeReturn onArrival(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn onBytes(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn onDecoder(GstPad* pad, GstPadProbeInfo* info, gpointer self);

  void noteArrival(GstClockTime stamp);
  bool takesBytes(std::size_t bytes);
  bool takesSize(int width, int height);
  bool takesCaps(GstCaps* caps);
  bool takesPicture(GstPad* pad, GstBuffer* buffer);
  bool isTooMuch(Steady arrived);

  GstElement* m_pipeline;
  GstElement* m_sink;
  const bool m_is_live;
  gulong m_handler;

  std::mutex m_mutex;  ///< for all below
  std::deque<std::pair<GstClockTime, Steady>> m_arrivals;
  std::size_t m_bytes = 0;  ///< since the last picture
  double m_credit;          ///< pictures that may be decoded now
  Steady m_credited = std::chrono::steady_clock::now();
  bool m_is_skipping = false;
  bool m_is_broken = false;
  std::string m_left_out;
  Steady m_left_out_at;
};

}  // namespace workstation
