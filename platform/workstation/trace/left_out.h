// Sentences about those whom the networks saw in a cycle and who did not become a tracked person, and about what a
// person was put together from.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/trace/explanation.h"

namespace workstation {

/// All who were left out, a text each; those with too low a pose score are one text for each run.
std::vector<std::string> leftOutTexts(const Scene& scene);
/// "2 skeletons inside it were left out: ..."; empty when nobody who was left out has a place inside the bed's outline.
std::string leftOutInBed(int area, const Scene& scene);
/// Which runs saw the body, and whether two people may have been mixed in it; empty for a body that the cycle lacks.
std::string originText(int n, const Scene& scene);
/// "shoulders", "head" or "shoulder": what stands for the place of the body.
std::string placeWord(int n, const TraceCycle& cycle);

}  // namespace workstation
