#include "platform/workstation/web/access/addresses.h"

#include <string>

namespace workstation {
namespace {

constexpr std::optional<Role> kAnybody = std::nullopt;

constexpr AddressRule kRules[] = {
    {"GET", "/", "", kAnybody},
    {"GET", "/local/velmor_care/*", "", kAnybody},
    {"GET", "/platform/authority.crt", "", kAnybody},
    {"GET, POST", "/platform/session", "", kAnybody},
    {"GET, POST", "/platform/people", "", Role::kInstaller},
    {"GET, POST", "/local/velmor_care/control.cgi", "action=get_status_code", Role::kCarer},
    {"GET, POST", "/local/velmor_care/control.cgi", "action=get_status_string", Role::kCarer},
    {"GET, POST", "/local/velmor_care/control.cgi", "action=get_execution_time", Role::kCarer},
    {"GET, POST", "/local/velmor_care/control.cgi", "action=get_is_portrait", Role::kCarer},
    {"GET, POST", "/local/velmor_care/control.cgi", "action=get_all_parameters", Role::kNurse},
    {"GET, POST", "/local/velmor_care/control.cgi", "", Role::kInstaller},
    {"GET", "/axis-cgi/jpg/image.cgi", "", Role::kNurse},
    {"GET", "/axis-cgi/mjpg/video.cgi", "", Role::kNurse},
    {"GET", "/axis-cgi/param.cgi", "", Role::kCarer},
    {"GET", "/platform/anonymised.jpg", "", Role::kCarer},
    {"GET", "/platform/anonymised.mjpg", "", Role::kCarer},
    {"GET", "/platform/events", "", Role::kCarer},
    {"GET", "/platform/why", "", Role::kCarer},
    {"GET, POST", "/platform/alarms", "", Role::kCarer},
    {"GET", "/platform/alarms/feed", "", Role::kCarer},
    {"GET, POST", "/platform/calls", "", Role::kInstaller},
    {"GET", "/platform/sight", "anonymised=1", Role::kCarer},
    {"GET", "/platform/sight", "", Role::kNurse},
    {"POST", "/platform/sight", "", Role::kInstaller},
    {"GET, POST", "/platform/camera", "", Role::kInstaller},
    {"GET", "/platform/camera/picture", "", Role::kInstaller},
    {"GET", "/platform/changes", "", Role::kNurse},
    {"GET, POST", "/platform/settings", "", Role::kInstaller},
};

bool isProgram(std::string_view path) { return path.ends_with(".cgi"); }

bool isPathOf(const AddressRule& rule, std::string_view path) {
  if (!rule.path.ends_with('*')) return rule.path == path;
  return path.starts_with(rule.path.substr(0, rule.path.size() - 1)) && !isProgram(path);
}

/// How often a form says the key; only the last time is obeyed, and whoever says it twice means to deceive somebody.
size_t timesSaid(std::string_view form, const std::string& key) {
  size_t times = 0;
  for (size_t end = 0; end != form.npos;) {
    end = form.find('&');
    const auto part = decodeForm(std::string(form.substr(0, end)));
    if (part && part->contains(key)) ++times;
    if (end != form.npos) form.remove_prefix(end + 1);
  }
  return times;
}

bool saysOnce(const AskedAddress& asked, std::string_view parameter) {
  if (parameter.empty()) return true;
  if (asked.parameters == nullptr || !asked.form) return false;
  const size_t equals = parameter.find('=');
  const std::string key(parameter.substr(0, equals));
  const auto said = asked.parameters->find(key);
  return said != asked.parameters->end() && said->second == parameter.substr(equals + 1) &&
         timesSaid(*asked.form, key) == 1;
}

}  // namespace

std::span<const AddressRule> addressRules() { return kRules; }

std::optional<Role> leastRole(const AskedAddress& asked) {
  const std::string_view method = asked.method == "HEAD" ? "GET" : asked.method;
  for (const AddressRule& rule : kRules) {
    if (rule.methods.find(method) != rule.methods.npos && isPathOf(rule, asked.path) &&
        saysOnce(asked, rule.parameter)) {
      return rule.least;
    }
  }
  return Role::kInstaller;
}

}  // namespace workstation
