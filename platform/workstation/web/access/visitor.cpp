#include "platform/workstation/web/access/visitor.h"

namespace workstation {

Visitor visitorOf(SoupServerMessage* /*message*/) { return {}; }

}  // namespace workstation
