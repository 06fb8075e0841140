#include "app/status.h"

std::string statusText(int code) {
  switch (code) {
    case status::kUnknown:
      return "Unknown status";
    case status::kStarting:
      return "Starting";
    case status::kRunning:
      return "AI";
    case status::kStopped:
      return "Stopped";
    case status::kDataError:
      return "Data error";
    case status::kModelError:
      return "AI error";
    case status::kLocationsError:
      return "Locations error";
    case status::kAreasError:
      return "AOI error";
    case status::kFindingsError:
      return "Findings error";
    case status::kEventsError:
      return "Events error";
    case status::kCalibrationError:
      return "3D calibration error";
    case status::kNotInBed:
      return "Patient not in bed, event active";
    case status::kOccupied:
      return "Occupancy event active";
    case status::kOutOfBed:
      return "Patient out of bed";
    case status::kFallen:
      return "Fall detected";
    case status::kSlow:
      return "Slow";
    case status::kNoConnection:
      return "No connection error";
    default:
      return "Unknown default status";
  }
}
