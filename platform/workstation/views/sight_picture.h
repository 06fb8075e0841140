// What the camera saw when its floor was calibrated and what it sees now, as pictures for the page.
#pragma once

#include <optional>
#include <string_view>

#include "platform/workstation/sight/sight_watch.h"
#include "platform/workstation/views/view_picture.h"

namespace workstation {

enum class SightShown { kThen, kNow, kBoth };

/// "then", "now" or "both"; nothing for any other text.
std::optional<SightShown> sightShownFrom(std::string_view name);

/// 640x360 before any turning: coarse grey of the moment, with the edges of then in orange and those of now in blue.
/// `anonymised`: without the edges of now, in which people may stand.
BgraPicture sightPicture(const SightPictures& pictures, SightShown shown, bool anonymised, Mounting mounting);

}  // namespace workstation
