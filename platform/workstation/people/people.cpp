#include "platform/workstation/people/people.h"

#include <algorithm>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/people/secrets.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using Kind = PeopleRefusal::Kind;

constexpr size_t kMostPeople = 500, kMostTokens = 500;

std::string checkedName(const std::string& text) {
  const auto name = nameFrom(text);
  if (!name) throw PeopleRefusal(Kind::kMistake, "A name has 1 to 64 characters, none of them a control character.");
  return *name;
}

std::string checkedPassword(const std::string& password) {
  const std::string mistake = mistakeInPassword(password);
  if (!mistake.empty()) throw PeopleRefusal(Kind::kMistake, mistake);
  return hashPassword(password);
}

Person& personIn(Register& all, const std::string& name) {
  Person* const person = all.person(name);
  if (person == nullptr) throw PeopleRefusal(Kind::kUnknown, "There is nobody of that name.");
  return *person;
}

void checkNotLast(const Register& all, const Person& person) {
  if (all.isLastInstaller(person)) {
    throw PeopleRefusal(Kind::kConflict, "The last installer stays: make somebody else an installer first.");
  }
}

}  // namespace

People::People(std::filesystem::path state) : m_state(std::move(state)), m_all(std::make_shared<const Register>()) {
  try {
    if (auto stored = loadRegister(m_state)) m_all = std::make_shared<const Register>(std::move(*stored));
  } catch (const std::exception& error) {
    m_trouble = error.what();
  }
}

bool People::areThere() const { return !m_trouble.empty() || !all()->people.empty(); }

std::shared_ptr<const Register> People::all() const {
  const std::lock_guard lock(m_mutex);
  return m_all;
}

std::optional<Token> People::tokenOf(const std::string& token) const {
  const auto known = all();
  const std::string hash = hashToken(token);
  const auto found =
      std::find_if(known->tokens.begin(), known->tokens.end(), [&hash](const Token& one) { return one.hash == hash; });
  return found == known->tokens.end() ? std::nullopt : std::optional(*found);
}

void People::change(const std::function<void(Register&)>& edit) {
  if (!m_trouble.empty()) throw PeopleRefusal(Kind::kConflict, m_trouble);
  const std::lock_guard one(m_changing);
  auto changed = std::make_shared<Register>(*all());
  edit(*changed);
  saveRegister(m_state, *changed);
  const std::lock_guard lock(m_mutex);
  m_all = std::move(changed);
}

std::string People::add(const std::string& name, Role role) {
  std::string password = randomPassword();
  const Person person{checkedName(name), hashPassword(password), role, true};
  change([&](Register& edited) {
    if (edited.person(person.name) != nullptr) throw PeopleRefusal(Kind::kConflict, "Somebody has that name already.");
    const bool is_token = std::any_of(edited.tokens.begin(), edited.tokens.end(),
                                      [&](const Token& token) { return token.name == person.name; });
    if (is_token) throw PeopleRefusal(Kind::kConflict, "A token has that name already.");
    if (edited.people.empty() && role != Role::kInstaller) {
      throw PeopleRefusal(Kind::kConflict, "The first person is an installer, who adds the others.");
    }
    if (edited.people.size() >= kMostPeople) throw PeopleRefusal(Kind::kConflict, "There are too many people already.");
    edited.people.push_back(person);
  });
  return password;
}

void People::setRole(const std::string& name, Role role) {
  change([&](Register& edited) {
    Person& person = personIn(edited, name);
    if (role != Role::kInstaller) checkNotLast(edited, person);
    person.role = role;
  });
}

std::string People::reset(const std::string& name) {
  std::string password = randomPassword();
  const std::string hash = hashPassword(password);
  change([&](Register& edited) {
    Person& person = personIn(edited, name);
    person.hash = hash;
    person.must_change = true;
  });
  return password;
}

void People::setPassword(const std::string& name, const std::string& before, const std::string& password) {
  const std::string hash = checkedPassword(password);
  change([&](Register& edited) {
    Person& person = personIn(edited, name);
    if (person.hash != before) throw PeopleRefusal(Kind::kConflict, "Somebody else has just changed the password.");
    person.hash = hash;
    person.must_change = false;
  });
}

void People::remove(const std::string& name) {
  change([&](Register& edited) {
    const Person& person = personIn(edited, name);
    checkNotLast(edited, person);
    edited.people.erase(edited.people.begin() + (&person - edited.people.data()));
  });
}

std::string People::addToken(const std::string& name, Role role) {
  std::string token = randomToken();
  constexpr size_t kIdLength = 12;
  const Token kept{randomToken().substr(0, kIdLength), checkedName(name), hashToken(token),
                   utcText(ticker_clock::now()), role};
  change([&kept](Register& edited) {
    if (edited.people.empty()) {
      throw PeopleRefusal(Kind::kConflict, "Nobody has to sign in here yet: add an installer first.");
    }
    if (edited.person(kept.name) != nullptr) {
      throw PeopleRefusal(Kind::kConflict, "Somebody has that name already.");
    }
    if (edited.tokens.size() >= kMostTokens) throw PeopleRefusal(Kind::kConflict, "There are too many tokens already.");
    edited.tokens.push_back(kept);
  });
  return token;
}

void People::revoke(const std::string& id) {
  change([&id](Register& edited) {
    if (std::erase_if(edited.tokens, [&id](const Token& token) { return token.id == id; }) == 0) {
      throw PeopleRefusal(Kind::kUnknown, "There is no such token.");
    }
  });
}

bool People::makeInstaller(const std::string& name, const std::string& password) {
  const std::string wanted = checkedName(name);
  const auto known = all();
  const Person* const now = known->person(wanted);
  if (now != nullptr && now->role == Role::kInstaller && isPassword(password, now->hash)) return false;
  const std::string hash = checkedPassword(password);
  change([&](Register& edited) {
    if (edited.person(wanted) == nullptr) edited.people.push_back({wanted, "", Role::kInstaller, false});
    Person& person = *edited.person(wanted);
    person.role = Role::kInstaller;
    person.hash = hash;
    person.must_change = false;
  });
  return true;
}

}  // namespace workstation
