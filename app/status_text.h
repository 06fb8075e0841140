// What the status codes mean.
#pragma once

#include <string>

/// The text for a status code: 200 is "AI". A code that is not known has a text of its own.
std::string statusText(int code);
