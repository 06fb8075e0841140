#include "platform/workstation/people/people.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "platform/workstation/people/lockout.h"
#include "platform/workstation/people/secrets.h"
#include "platform/workstation/people/sessions.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using Kind = PeopleRefusal::Kind;

TEST(Secrets, AreKeptAsHashesThatFitOnlyThem) {
  const std::string hash = hashPassword("pässword 1"), again = hashPassword("pässword 1");
  EXPECT_EQ(hash.rfind("$y$", 0), 0U);
  EXPECT_NE(hash, again) << "salted";
  EXPECT_TRUE(isPassword("pässword 1", hash) && isPassword("pässword 1", again));
  for (const char* wrong : {"", "pässword", "pässword 11", "Pässword 1"})
    EXPECT_FALSE(isPassword(wrong, hash)) << wrong;
  for (const char* none : {"", "*", "*0", "pässword 1", "$y$", "$1$abc$"}) EXPECT_FALSE(isPassword("pässword 1", none));
  EXPECT_FALSE(isPassword(std::string("pässword 1\0x", 13), hash)) << "libcrypt would stop at the NUL";
  EXPECT_FALSE(isPassword("", nobodysHash()));
  EXPECT_EQ(hashToken("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(mistakeInPassword(randomPassword()) + mistakeInPassword("ääääääää") + mistakeInPassword("with blank"), "");
  EXPECT_NE(randomPassword(), randomPassword());
  EXPECT_EQ(randomToken().size(), 64U);
  for (const std::string& bad : {std::string("ääääää7"), std::string(501, 'x'), std::string("tab\tinside"),
                                 std::string("\xff\xff\xff\xff\xff\xff\xff\xff")}) {
    EXPECT_NE(mistakeInPassword(bad), "") << bad;
  }
}

/// What becomes of a change: done, or why not.
template <typename Change>
std::string tried(Change change) {
  try {
    change();
    return "done";
  } catch (const PeopleRefusal& refused) {
    return refused.kind == Kind::kMistake ? "mistake" : refused.kind == Kind::kUnknown ? "unknown" : "conflict";
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST(People, AlwaysHaveAnInstallerAndNamesThatAreToldApart) {
  const StateFolder folder;
  People people(folder.path());
  EXPECT_FALSE(people.areThere());
  EXPECT_EQ(tried([&] { people.add("Anna", Role::kNurse); }), "conflict") << "the first installs";
  EXPECT_EQ(tried([&] { people.addToken("wall", Role::kCarer); }), "conflict");
  EXPECT_FALSE(people.areThere());
  const std::string password = people.add("  Ida ", Role::kInstaller);
  EXPECT_TRUE(isPassword(password, people.all()->person("ida")->hash)) << "in small letters as well";
  EXPECT_TRUE(people.all()->person("Ida")->must_change);
  for (const char* taken : {"Ida", "IDA", " ida"}) {
    EXPECT_EQ(tried([&] { people.add(taken, Role::kCarer); }), "conflict") << taken;
  }
  for (const std::string& bad : std::initializer_list<std::string>{"", "  ", "a\nb", "\xff", std::string(65, 'x')}) {
    EXPECT_EQ(tried([&] { people.add(bad, Role::kCarer); }), "mistake") << bad;
  }
  EXPECT_EQ(tried([&] { people.setRole("Ida", Role::kNurse); }), "conflict");
  EXPECT_EQ(tried([&] { people.remove("ida"); }), "conflict");
  people.add("Änne", Role::kCarer);
  EXPECT_EQ(tried([&] { people.setRole("änne", Role::kInstaller); }), "done");
  EXPECT_EQ(tried([&] { people.remove("Ida"); }), "done") << "not the last any more";
  EXPECT_EQ(tried([&] { people.remove("Ida"); }), "unknown");
  EXPECT_EQ(tried([&] { people.reset("Ida"); }), "unknown");
  EXPECT_EQ(tried([&] { people.setPassword("Änne", people.all()->person("Änne")->hash, "short"); }), "mistake");
  EXPECT_EQ(tried([&] { people.setPassword("änne", "another's", "long enough"); }), "conflict") << "changed meanwhile";
  people.setPassword("änne", people.all()->person("Änne")->hash, "long enough");
  EXPECT_FALSE(people.all()->person("Änne")->must_change);
  const std::string fresh = people.reset("Änne");
  EXPECT_TRUE(isPassword(fresh, people.all()->person("Änne")->hash));
}

TEST(People, OutliveARestartInAFileForItsOwnerWithoutASecret) {
  const StateFolder folder;
  std::string token;
  {
    People people(folder.path());
    EXPECT_TRUE(people.makeInstaller("Ida", "the password"));
    EXPECT_FALSE(people.makeInstaller("ida", "the password")) << "so already";
    people.add("Anna", Role::kNurse);
    EXPECT_TRUE(people.makeInstaller("anna", "another one"));
    token = people.addToken("wall", Role::kCarer);
  }
  const std::string text = folder.read("people.json");
  EXPECT_EQ(text.find("the password") & text.find("another one") & text.find(token), std::string::npos);
  struct stat status {};
  for (const char* file : {"people.json", "people.json.previous"}) {
    ASSERT_EQ(::stat((folder / file).c_str(), &status), 0) << file;
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << file;
  }
  People people(folder.path());
  EXPECT_EQ(people.all()->people.size(), 2U);
  EXPECT_EQ(people.all()->person("Anna")->role, Role::kInstaller);
  EXPECT_TRUE(isPassword("another one", people.all()->person("Anna")->hash));
  ASSERT_TRUE(people.tokenOf(token));
  EXPECT_EQ(people.tokenOf(token)->name + std::string(nameOf(people.tokenOf(token)->role)), "wallcarer");
  EXPECT_FALSE(people.tokenOf("") || people.tokenOf(people.all()->tokens[0].hash));
  EXPECT_EQ(tried([&] { people.revoke("none"); }), "unknown");
  people.revoke(people.all()->tokens[0].id);
  EXPECT_FALSE(people.tokenOf(token) || People(folder.path()).tokenOf(token));
}

TEST(People, LetNobodyInWhileTheirFileIsDamaged) {
  const StateFolder folder;
  const std::string token = [&] {
    People people(folder.path());
    people.makeInstaller("Ida", "the password");
    return people.addToken("wall", Role::kCarer);
  }();
  const std::string good = folder.read("people.json");
  const auto with = [&good](const std::string& from, const std::string& to) {
    return std::string(good).replace(good.find(from), from.size(), to);
  };
  for (const std::string& damaged :
       {std::string(), std::string("{"), std::string("[]"), std::string("{}"), good.substr(0, good.size() / 2),
        with("\"installer\"", "\"installers\""), with("\"installer\"", "\"nurse\""), with("\"Ida\"", "7"),
        with("\"Ida\"", "\"\""), with("false", "\"false\""), with("\"password\"", "\"passwords\""),
        with("\"tokens\"", "\"token\"")}) {
    folder.write("people.json", damaged);
    People people(folder.path());
    EXPECT_TRUE(people.areThere()) << damaged;
    EXPECT_NE(people.trouble().find("people.json: is damaged ("), std::string::npos) << damaged;
    EXPECT_TRUE(people.all()->people.empty() && !people.tokenOf(token)) << damaged;
    EXPECT_EQ(tried([&] { people.makeInstaller("Eve", "the password"); }), "conflict");
    EXPECT_EQ(folder.read("people.json"), damaged) << "nothing takes its place unasked";
  }
  folder.write("people.json", good);
  EXPECT_EQ(People(folder.path()).trouble(), "");
}

TEST(People, AChangeThatIsNotOnDiskIsNone) {
  const StateFolder folder;
  People people(folder.path());
  people.makeInstaller("Ida", "the password");
  const std::string before = folder.read("people.json");
  std::filesystem::create_directory(folder / "people.json.new");  // nothing can be written there
  EXPECT_NE(tried([&] { people.add("Anna", Role::kCarer); }).find("cannot be written"), std::string::npos);
  EXPECT_EQ(people.all()->person("Anna"), nullptr);
  EXPECT_EQ(folder.read("people.json"), before);
  std::filesystem::remove(folder / "people.json.new");
  EXPECT_EQ(tried([&] { people.add("Anna", Role::kCarer); }), "done");
}

TEST(SignedIn, OutlivesARestartAndEndsWithThePasswordOrUnused) {
  const StateFolder folder;
  auto now = ticker_clock::now();
  const auto clock = [&now] { return now; };
  Register all{{{"Ida", "hash 1", Role::kInstaller, false}, {"Anna", "hash 2", Role::kCarer, false}}, {}};
  std::string ida, anna, out;
  {
    Sessions sessions(folder.path(), clock);
    ida = sessions.begin(all.people[0]);
    anna = sessions.begin(all.people[1]);
    out = sessions.begin(all.people[1]);
    sessions.end(out);
    ASSERT_TRUE(sessions.settle(10s));
  }
  const std::string file = folder.read("sessions.json");
  EXPECT_EQ(file.find(ida), std::string::npos) << "whoever reads the file gets in nowhere";
  Sessions sessions(folder.path(), clock);
  EXPECT_EQ(sessions.find(ida, all), &all.people.front());
  EXPECT_EQ(sessions.find(anna, all), &all.people[1]);
  EXPECT_EQ(sessions.find(out, all), nullptr);
  EXPECT_EQ(sessions.find("", all), nullptr);
  now += 29 * 24h;
  EXPECT_EQ(sessions.find(anna, all), &all.people[1]);
  now += 2 * 24h;
  EXPECT_EQ(sessions.find(ida, all), nullptr) << "31 days";
  EXPECT_EQ(sessions.find(anna, all), &all.people[1]) << "2 days";
  ASSERT_TRUE(sessions.settle(10s));
  now -= 20'000 * 24h;
  Sessions early(folder.path(), clock);
  EXPECT_EQ(early.find(anna, all), &all.people[1]) << "the machine's clock is not set yet";
  now += 20'000 * 24h;
  EXPECT_EQ(early.find(anna, all), &all.people[1]) << "it was set";
  all.people[1].hash = "hash 3";
  EXPECT_EQ(sessions.find(anna, all), nullptr) << "a new password";
  sessions.spare(anna, true);
  EXPECT_EQ(sessions.find(anna, all), &all.people[1]) << "while it changes";
  sessions.spare(anna, false);
  EXPECT_EQ(sessions.find(anna, all), nullptr) << "it did not change";
  all.people[1] = {"Berta", "hash 2", Role::kInstaller, false};
  EXPECT_EQ(sessions.find(anna, all), nullptr) << "nobody of that name";
  ASSERT_TRUE(sessions.settle(10s));
  folder.write("sessions.json", "[{]");
  EXPECT_EQ(Sessions(folder.path(), clock).find(anna, all), nullptr);
}

TEST(Guesses, AreLetThroughLessAndLessFromThereForThatName) {
  auto now = Lockout::Clock::now();
  Lockout lockout([&now] { return now; });
  for (int wrong = 0; wrong < 5; ++wrong) {
    EXPECT_EQ(lockout.wait("192.0.2.7", "Anna"), 0s) << "a typing error is no attack";
    lockout.noteWrong("192.0.2.7", "Anna");
  }
  for (const auto expected : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s}) {
    EXPECT_EQ(lockout.wait("192.0.2.7", "Anna"), expected);
    now += expected - 1ms;
    EXPECT_EQ(lockout.wait("192.0.2.7", "Anna"), 1s);
    now += 1ms;
    EXPECT_EQ(lockout.wait("192.0.2.7", "Anna"), 0s);
    lockout.noteWrong("192.0.2.7", "Anna");
  }
  EXPECT_EQ(lockout.wait("192.0.2.8", "Anna"), 0s) << "Anna, elsewhere";
  EXPECT_EQ(lockout.wait("192.0.2.7", "Berta"), 0s) << "others, there";
  now += 15min + 1s;
  EXPECT_EQ(lockout.wait("192.0.2.7", "Anna"), 0s);
  EXPECT_EQ(lockout.noteWrong("192.0.2.7", "Anna"), 1U) << "forgotten";
  while (lockout.wait("2001:db8:1:2::1", "Anna") == 0s) lockout.noteWrong("2001:db8:1:2::1", "Anna");
  EXPECT_GT(lockout.wait("2001:db8:1:2:ffff::9", "Anna"), 0s) << "one house has many such addresses";
  EXPECT_EQ(lockout.wait("2001:db8:1:3::1", "Anna"), 0s);
  lockout.noteRight("2001:db8:1:2::1", "Anna");
  EXPECT_EQ(lockout.wait("2001:db8:1:2::1", "Anna"), 0s);
}

}  // namespace
