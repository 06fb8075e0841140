#include "platform/workstation/system/shown_text.h"

#include <algorithm>

namespace workstation {

std::string shown(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; }, '?');
  return text;
}

}  // namespace workstation
