// The status codes and what they mean.
#pragma once

#include <string>

namespace status {

/// The values of g_StatusCode; some are for others who report in the same terms.
enum Code : int {
  kUnknown = 50,
  kStarting = 100,
  kRunning = 200,
  kStopped = 300,
  kDataError = 400,   ///< a request could not be carried out
  kModelError = 401,  ///< start-up failed, or a model could not be run
  kLocationsError = 402,
  kAreasError = 403,
  kFindingsError = 405,
  kEventsError = 406,
  kCalibrationError = 407,
  kNotInBed = 500,
  kOccupied = 501,
  kOutOfBed = 502,  ///< while that event is active
  kFallen = 503,    ///< while that event is active and nobody is out of bed
  kSlow = 600,      ///< the cycle before took too long
  kNoConnection = 700,
};

}  // namespace status

/// The text for a status code: 200 is "AI". A code that is not known has a text of its own.
std::string statusText(int code);
