// The true people of a recorded room, one picture a line.
//
// {"t": 0.5, "people": [{"id": 0, "in_bed": true, "standing": false, "lying_on_floor": false,
//                        "keypoints": [[x, y, v], ... one row for each body part]}]}
//
// x and y are pixels of the analysis picture; v is 2 for visible, 1 for hidden but in the picture, 0 for outside it.
#pragma once

#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "pose/skeleton.h"

enum class Posture { kStanding, kInBed, kLyingOnFloor, kChanging };

/// The people of one picture, as a perfect pose network would report them.
struct TruthPicture {
  TimeStamp time;
  Skeletons skeletons;
  std::vector<Posture> postures;  ///< of the skeletons, in their order
};

/// Reads one line. Throws std::runtime_error that says what is wrong; keys that are not needed are ignored.
TruthPicture parseTruth(const std::string& line);
