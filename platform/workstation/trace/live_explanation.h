// Why, now: the sentence of each person, bed and event of what is being watched.
//
// {"time": "2026-03-01T12:00:31.500Z" or null, "cycle": 83,
//  "people": [{"id": 3, "text": "Person 3 stands."}],
//  "beds": [{"area": 1, "text": "Bed 1 counts as occupied by person 3, ..."}],
//  "events": [{"seq": 7, "run": "9f2c41d07b3e5a18", "name": "Fall Detected", "active": true,
//              "because": "person 3 has lain still on the floor for 3 s; ..."}]}
//
// Before the first cycle, and after one that failed, nothing is known of now: no time, no people, no beds.
// The events are the last 200 changes of this run, oldest first.
#pragma once

#include <string>

namespace workstation {

/// Takes whole lines of a trace and returns at once; what does not fit is left out. From any thread.
void tellLiveExplanation(const std::string& lines);

/// The document above, as of the last line that was understood. From any thread; never waits for one.
std::string liveExplanation();

}  // namespace workstation
