#include "app/status_text.h"

std::string statusText(int code) {
  switch (code) {
    case 50:
      return "Unknown status";
    case 100:
      return "Starting";
    case 200:
      return "AI";
    case 300:
      return "Stopped";
    case 400:
      return "Data error";
    case 401:
      return "AI error";
    case 402:
      return "Locations error";
    case 403:
      return "AOI error";
    case 405:
      return "Findings error";
    case 406:
      return "Events error";
    case 407:
      return "3D calibration error";
    case 500:
      return "Patient not in bed, event active";
    case 501:
      return "Occupancy event active";
    case 502:
      return "Patient out of bed";
    case 503:
      return "Fall detected";
    case 600:
      return "Slow";
    case 700:
      return "No connection error";
    default:
      return "Unknown default status";
  }
}
