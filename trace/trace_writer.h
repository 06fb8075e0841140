// Writes down what the analysis decides: a line of JSON for each cycle (docs/trace.md).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "app/observer.h"
#include "platform/clock/clock.h"
#include "platform/trace/trace_sink.h"

/// Gives the sink each cycle's line when the cycle is over, before the first one the header and the settings, and the
/// settings again when others are in force.
class TraceWriter : public AnalysisObserver {
 public:
  /// The sink outlives the writer.
  explicit TraceWriter(TraceSink& sink) : m_sink(sink) {}

  /// The last line, which a run that is killed has not. What comes afterwards is not written.
  void runEnded();

  void cycleBegan() override;
  void cycleEnded(bool completed) override;
  void posesDecoded(int rotation, int width, int height, const std::vector<Skeleton>& poses, std::size_t counted,
                    float limit) override;
  void personChecked(std::size_t index, float score, bool confirmed) override;
  void confirmationFailed() override;
  void fusionBegan(const std::vector<Skeleton>& all) override;
  void pairFused(std::size_t first, std::size_t second, float distance, const Skeleton& fused) override;
  void pairReduced(std::size_t first, std::size_t second, float distance, std::size_t dropped) override;
  void fusedFiltered(const std::vector<Skeleton>& all, float limit) override;
  void overlapFound(std::size_t smaller, std::size_t larger, float share, float limit) override;
  void personTracked(int id, std::size_t index, float distance) override;
  void personAppeared(int id, std::size_t index) override;
  void personMissing(int id, int cycles) override;
  void personForgotten(int id) override;
  void personJudged(const std::deque<one_find>& findings, std::size_t depth) override;
  void bedsWatched(const bool (&occupied)[3], int empty_cycles, int limit) override;
  void fallFound(int id) override;

 private:
  using Json = nlohmann::ordered_json;

  /// Takes a step; whatever goes wrong in it ends the trace and nothing else.
  template <typename Step>
  void guarded(Step step);
  /// The number of the skeleton at a place of the list that the current step works on; -1 for one that no run gave.
  int numberAt(std::size_t index) const;
  void removeAt(std::size_t index);
  /// Those who were found to overlap leave the list before it is tracked.
  void leaveOverlapping();
  /// A pose of the cycle; null for no pose's number.
  Json* findPose(int number);
  bool isDropped(int number);
  void addEvents();
  /// Once, when all that it tells is known.
  void writeHeader();
  void writeSettings();
  void write(const Json& line);

  TraceSink& m_sink;
  std::uint64_t m_cycles = 0;
  TimeStamp m_begin;
  std::map<std::string, std::string> m_settings;  ///< as written last
  std::map<std::string, bool> m_active;           ///< events, after the last cycle
  std::map<int, int> m_ages;                      ///< of those who are tracked: cycles
  bool m_has_header = false;
  bool m_has_ended = false;

  // Of the cycle that runs.
  TimeStamp m_time;
  Json m_cycle;
  int m_next = 0;                           ///< number of the next skeleton
  int m_last_rotation = 0;                  ///< of the last run
  std::map<int, std::vector<int>> m_valid;  ///< the numbers of each run's valid skeletons, by its rotation
  std::vector<int> m_list;                  ///< the numbers of those that the current step works on
  std::map<std::size_t, Json> m_overlapping;
  std::map<int, int> m_tracked;  ///< id to number
};

/// From here on the analysis is traced, if the platform wants a trace. Once, when the program has read its settings.
void startTrace();

/// The run ends in order, and so does its trace.
void endTrace();
