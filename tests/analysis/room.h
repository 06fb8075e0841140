// A patient's room in simulated time: people of sticks before a camera 2.5 m up that looks 30 degrees down.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/detection_processing.h"
#include "analysis/tracker.h"
#include "app/detection_params.h"
#include "app/floor_params.h"
#include "app/process_state.h"
#include "events/event_manager.h"
#include "geometry/distance_controller.h"
#include "platform/scripted/lens.h"
#include "tests/platform/state_folder.h"

/// Metres: x to the right of the camera, away from it along the floor, up from the floor.
struct Place {
  double x, away, up;
};

class Room : public ::testing::Test {
 protected:
  Room() {
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    const scripted::Lens lens("UINT32 3700;\n");
    const Point red = seen({-1.5, 4.5, 0}), green = seen({1.5, 4.5, 0});
    const Point blue = seen({1.5, 2, 0}), yellow = seen({-1.5, 2, 0});
    const auto f = [](int pixels) { return static_cast<float>(pixels); };
    EXPECT_TRUE(g_DistanceController.calibrate(
        "AXIS Q1656", Quad(f(red.x), f(red.y), f(yellow.x), f(yellow.y), f(blue.x), f(blue.y), f(green.x), f(green.y)),
        3.0F, 2.5F));
    g_FloorParams.b_FeetOnFloor = true;
    g_DetectionParams = {};
    g_DetectionParams.b_DetectPatientOutOfBed = g_DetectionParams.b_DetectFallenPersons = true;
    g_AreaofInterest = area_of_interest();
    g_findingsHistory = FindingsHistory(12);
    g_Tracker = tracker();
    g_Tracker.init(8);
    g_EventManager = &m_events;
    m_events.addEvent("Patient Out of Bed");
    m_events.addEvent("Fall Detected");
    run(1, {});  // no bed is in use: nobody counts as missing
  }
  ~Room() override { g_EventManager = nullptr; }

  /// Where the camera sees a place (3.7 mm lens, 8.1 x 4.51 mm sensor).
  static Point seen(const Place& place) {
    const double below = 2.5 - place.up;
    const double depth = below * 0.5 + place.away * std::sqrt(0.75);
    const double down = below * std::sqrt(0.75) - place.away * 0.5;
    return {static_cast<int>(std::lround(640 + 1280 * 3.7 / 8.1 * place.x / depth)),
            static_cast<int>(std::lround(360 + 720 * 3.7 / 4.51 * down / depth))};
  }

  /// A body 1.7 m long; `at` turns metres along the body from the feet and to its left into a place.
  template <typename At>
  static Skeleton body(At at) {
    constexpr std::array<double, 17> along{1.6,  1.64, 1.64, 1.62, 1.62, 1.42, 1.42, 1.15, 1.15,
                                           0.95, 0.95, 0.9,  0.9,  0.5,  0.5,  0.08, 0.08};
    constexpr std::array<double, 17> aside{0,   0.03, -0.03, 0.07,  -0.07, 0.2,   -0.2, 0.25, -0.25,
                                           0.3, -0.3, 0.15,  -0.15, 0.12,  -0.12, 0.1,  -0.1};
    Keypoints keypoints;
    for (std::size_t i = 0; i < BodyParts.size(); ++i) {
      keypoints[BodyParts[i]] = Keypoint(seen(at(along[i], aside[i])), BodyParts[i], 1.0F);
    }
    return {keypoints, -1, 1.0F};
  }
  static Skeleton standing(double x, double away) {
    return body([=](double along, double aside) { return Place{x + aside, away, along}; });
  }
  /// Across the picture, the middle of the body at (x, away).
  static Skeleton lying(double x, double away, double up = 0.1) {
    return body([=](double along, double aside) { return Place{x - 0.85 + along, away + aside, up}; });
  }
  static Skeleton inBed1() { return lying(-1.4, 3, 0.6); }
  static Skeleton inBed2() { return lying(1.4, 3, 0.6); }

  /// A bed area around somebody who lies in it.
  static void drawBed(int bed, const Skeleton& patient) {
    const auto [x, y] = patient.superior;
    g_AreaofInterest.set_detection(bed, {{x - 90, y - 40}, {x + 60, y - 40}, {x + 60, y + 40}, {x - 90, y + 40}});
    g_AreaofInterest.set_detection_active(bed, true);
    bool* const inUse[] = {&g_DetectionParams.b_Detection1Active, &g_DetectionParams.b_Detection2Active,
                           &g_DetectionParams.b_Detection3Active};
    *inUse[bed - 1] = true;
  }

  /// Analysis cycles, half a second each, that see these people.
  void run(int cycles, const Skeletons& people, int period_ms = 500) {
    for (int i = 0; i < cycles; ++i) {
      ticker_clock::setReplayTime(m_now += std::chrono::milliseconds(period_ms));
      g_skeletons = people;
      DetectionProcessing::monitor_AOI();
      DetectionProcessing::fallen_detection();
      DetectionProcessing::manage_events();
    }
  }
  static bool outOfBed() { return g_EventManager->isEventStarted("Patient Out of Bed"); }
  static bool fall() { return g_EventManager->isEventStarted("Fall Detected"); }
  static Activity activity() { return g_findingsHistory.getLatestFinding(g_findingsHistory.getIDs().front()).activity; }

 private:
  StateFolder m_state;
  EventManager m_events;
  TimeStamp m_now;
};
