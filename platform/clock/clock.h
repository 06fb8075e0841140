// The one clock of the process. Findings, events and the camera follow it; it includes nothing of ours.
//
// Live (the default): the system clock and the GLib timer. Replay (VELMOR_CLOCK=replay in the environment): time stands
// still while a cycle runs and steps one period between cycles; the first cycle runs one period after the epoch.
#pragma once

#include <glib.h>

#include <chrono>
#include <cstdint>

/// A point in time with nanosecond resolution. Live: wall time. Replay: time since the recording's first picture.
using TimeStamp = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

namespace ticker_clock {

/// True when the process replays a recording.
bool isReplay();

/// Now, on the process's clock.
TimeStamp now();

/// Calls `callback(data)` every `interval_ms` from the default GLib main loop; returns the GLib source id (positive),
/// to be ended with g_source_remove. Live the beat is kept: a tick whose time passes while a call lasts is left out and
/// never made up, so that the loop gets to serve what else waits. Replay: as fast as the loop turns, stepping now() by
/// the interval before each call.
guint addTicker(guint interval_ms, GSourceFunc callback, gpointer data);

/// How well the live ticker keeps its beat.
struct Beat {
  std::chrono::nanoseconds period{0};      ///< 0 while there is no live ticker
  std::chrono::nanoseconds age{0};         ///< since the ticker was added
  std::chrono::nanoseconds last_call{0};   ///< how long the last finished call took
  std::uint64_t left_out = 0;              ///< ticks since the ticker was added
  std::uint64_t left_out_last_minute = 0;  ///< of the ticks that were due in the last minute
};

/// From any thread.
Beat beat();

/// The number of the ticker's call that is under way, from 1 on; 0 between calls. What belongs to one call belongs to
/// one cycle.
std::uint64_t currentTick();

/// Replay only: the last moment at which there is a picture. A ticker that would step past it raises SIGTERM instead of
/// calling back, so the run ends as an orderly stop does.
void setEnd(TimeStamp last);

/// For tests and for tools that drive the analysis themselves: switches to replay and sets now().
void setReplayTime(TimeStamp time);

}  // namespace ticker_clock
