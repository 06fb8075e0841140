#include "platform/workstation/web/access/visitor.h"

#include <memory>

namespace workstation {
namespace {

constexpr const char* kKey = "velmor-visitor";

}  // namespace

std::optional<Visitor> knownVisitorOf(SoupServerMessage* message) {
  const auto* noted = static_cast<const Visitor*>(g_object_get_data(G_OBJECT(message), kKey));
  return noted == nullptr ? std::nullopt : std::optional(*noted);
}

Visitor visitorOf(SoupServerMessage* message) { return knownVisitorOf(message).value_or(Visitor{"", Role::kCarer}); }

void noteVisitor(SoupServerMessage* message, const Visitor& visitor) {
  auto noted = std::make_unique<Visitor>(visitor);
  g_object_set_data_full(G_OBJECT(message), kKey, noted.release(),
                         [](gpointer old) { std::unique_ptr<Visitor>(static_cast<Visitor*>(old)); });
}

}  // namespace workstation
