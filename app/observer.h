// Whoever wants to know what the analysis decided in a cycle, and why. It includes nothing of ours.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

struct Skeleton;
struct one_find;

/// Is told step by step, on the main loop's thread, while a cycle runs; must not throw and not change anything. What
/// it is given is only there during the call. Indices are those of the list that the step works on.
class AnalysisObserver {
 public:
  AnalysisObserver() = default;
  virtual ~AnalysisObserver() = default;
  AnalysisObserver(const AnalysisObserver&) = delete;
  AnalysisObserver& operator=(const AnalysisObserver&) = delete;

  virtual void cycleBegan() = 0;
  /// The cycle is over; after a failed one only cycleBegan was told for certain.
  virtual void cycleEnded(bool completed) = 0;

  /// A run on the picture turned by `rotation` degrees: all poses of the decoder, in their order, in pixels of the
  /// upright picture. Only the first `counted` count: the next one's score is below the limit. The network's input has
  /// that size.
  virtual void posesDecoded(int rotation, int width, int height, const std::vector<Skeleton>& poses,
                            std::size_t counted, float limit) = 0;
  /// Whether the `index`th of the last run's valid skeletons is a person for the detector, whose best score for one is
  /// minus infinity when it saw none or could not look.
  virtual void personChecked(std::size_t index, float score, bool confirmed) = 0;
  /// There was no picture to check people in.
  virtual void confirmationFailed() = 0;

  /// The lists of all runs, one after the other.
  virtual void fusionBegan(const std::vector<Skeleton>& all) = 0;
  /// first < second leave the list; what they are fused into goes to its end.
  virtual void pairFused(std::size_t first, std::size_t second, float distance, const Skeleton& fused) = 0;
  /// Of two who are one person, seen by runs that are not a quarter turn apart, `dropped` leaves the list.
  virtual void pairReduced(std::size_t first, std::size_t second, float distance, std::size_t dropped) = 0;
  /// All who remain, and whether each scores above the limit and has a top of the body.
  virtual void fusedFiltered(const std::vector<Skeleton>& all, float limit) = 0;

  /// One of two boxes that share more than `limit` of the smaller one leaves the list, once all pairs are looked at.
  virtual void overlapFound(std::size_t smaller, std::size_t larger, float share, float limit) = 0;

  virtual void personTracked(int id, std::size_t index, float distance) = 0;
  virtual void personAppeared(int id, std::size_t index) = 0;
  virtual void personMissing(int id, int cycles) = 0;
  virtual void personForgotten(int id) = 0;

  /// Somebody's findings with what this cycle adds, the newest last; at most `depth` are kept.
  virtual void personJudged(const std::deque<one_find>& findings, std::size_t depth) = 0;
  /// Which of the three bed areas hold somebody, and for how many cycles in a row one in use was empty; more than
  /// `limit` raise the event.
  virtual void bedsWatched(const bool (&occupied)[3], int empty_cycles, int limit) = 0;
  /// The person who lies helpless.
  virtual void fallFound(int id) = 0;
};

/// Nobody, unless somebody wants to know.
extern AnalysisObserver* g_observer;
