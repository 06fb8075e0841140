#include "platform/workstation/alarms/call_settings.h"

#include <stdexcept>

#include "tests/platform/alarms/alarm_room.h"

namespace {

using namespace workstation;

std::string refusalOf(const std::string& document, const CallSettings& before = {}) {
  try {
    parseCallSettings(document, before);
    return "";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::string levels(const std::string& receiver) { return R"({"levels":[[{"kind":"people"},)" + receiver + "]]}"; }

TEST(CallSettingsTest, ADocumentIsReadAsItIsShownAndKeepsItsSecrets) {
  const CallSettings defaults = parseCallSettings("{}", {});
  EXPECT_EQ(defaults, CallSettings());
  EXPECT_EQ(documentOf(defaults, false),
            R"({"events":{"fall":{"delay_s":0,"hours":[{"from":"00:00","to":"24:00"}],"repeat_s":60,"escalate_s":60,)"
            R"("coming_s":300},"exit":{"delay_s":0,"hours":[{"from":"00:00","to":"24:00"}],"repeat_s":300,)"
            R"("escalate_s":180,"coming_s":300}},"levels":[[{"kind":"people"}]]})");
  const CallSettings set = parseCallSettings(kTwoLevels, {});
  EXPECT_EQ(set.levels.at(1).at(0).secret, "0123456789abcdef");
  const std::string shown = documentOf(set, false);
  EXPECT_EQ(shown.find("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(parseCallSettings(shown, set), set) << "what is shown can be sent back";
  EXPECT_EQ(parseCallSettings(documentOf(set, true), {}), set);
  EXPECT_NE(refusalOf(shown).find("secret is needed"), std::string::npos) << "of a receiver that is not known";
}

TEST(CallSettingsTest, WhatCannotBeIsRefusedByOneLineThatNamesIt) {
  const std::string hook = R"({"kind":"webhook","name":"w","secret":"0123456789abcdef","url":)";
  const std::pair<std::string, const char*> refused[] = {
      {"", "no JSON"},
      {"[]", "is an object"},
      {R"({"level":[]})", "no \"level\""},
      {R"({"events":{"fall":{"delay_s":-1}}})", "events.fall.delay_s is a whole number"},
      {R"({"events":{"fall":{"delay_s":1.5}}})", "events.fall.delay_s"},
      {R"({"events":{"exit":{"escalate_s":9}}})", "events.exit.escalate_s"},
      {R"({"events":{"fall":{"repeat_s":3601}}})", "events.fall.repeat_s"},
      {R"({"events":{"fall":{"hours":[]}}})", "a fall has to call"},
      {R"({"events":{"exit":{"hours":[{"from":"24:00","to":"01:00"}]}}})", "events.exit.hours"},
      {R"({"events":{"exit":{"hours":[{"from":"08:00","to":"08:00"}]}}})", "two different times"},
      {R"({"events":{"exit":{"hours":[{"from":"8:00","to":"09:60"}]}}})", "events.exit.hours"},
      {R"({"levels":[]})", "1 to 5 levels"},
      {R"({"levels":[[]]})", "levels[0]"},
      {R"({"levels":[[{"kind":"people"}],[{"kind":"people"}]]})", "name them once"},
      {R"({"levels":[[{"kind":"pigeon"}]]})", "kind is"},
      {R"({"levels":[[)" + hook + R"("http://a/"}]]})", "the first level calls the people"},
      {levels(hook + R"("http://a/"},)" + hook + R"("http://b/"})"), "\"w\" already"},
      {levels(hook + R"("ftp://a/"})"), "http:// or https://"},
      {levels(hook + R"("http:///x"})"), "http:// or https://"},
      {levels(hook + R"("http://u:p@a/"})"), "no user, password or fragment"},
      {levels(hook + R"("not an address"})"), "is no address"},
      {levels(R"({"kind":"webhook","name":"w","url":"http://a/","secret":"short"})"), "secret is a text of 16"},
      {levels(R"({"kind":"webhook","name":"a\nb","url":"http://a/","secret":"0123456789abcdef"})"), "name is a text"},
      {levels(R"({"kind":"webhook","url":"http://a/","secret":"0123456789abcdef"})"), "name is a text"}};
  for (const auto& [document, line] : refused) {
    const std::string refusal = refusalOf(document);
    EXPECT_TRUE(refusal.find(line) != std::string::npos && refusal.find('\n') == std::string::npos)
        << document << ": " << refusal;
  }
  EXPECT_EQ(refusalOf(R"({"events":{"exit":{"hours":[]}}})"), "") << "an exit need not call anybody";
}

TEST(CallSettingsTest, AFileThatCannotBeUsedIsToldAndTheOneBeforeCounts) {
  const StateFolder folder;
  std::string problem;
  EXPECT_EQ(loadCallSettings(folder.path(), problem), CallSettings());
  EXPECT_EQ(problem, "") << "nothing was ever set";
  const CallSettings set = parseCallSettings(kTwoLevels, {});
  storeCallSettings(folder.path(), set);
  EXPECT_EQ(loadCallSettings(folder.path(), problem), set);
  EXPECT_EQ(std::filesystem::status(folder / "calls.json").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  storeCallSettings(folder.path(), {});
  EXPECT_EQ(problem, "");
  folder.write("calls.json", "{");
  EXPECT_EQ(loadCallSettings(folder.path(), problem), set);
  EXPECT_NE(problem.find("calls.json cannot be used"), std::string::npos) << problem;
  folder.write("calls.json.before", "");
  problem.clear();
  EXPECT_EQ(loadCallSettings(folder.path(), problem), CallSettings());
  EXPECT_NE(problem, "");
}

}  // namespace
