#include "Qor/Entity.h"

namespace Qor {

EntityBase::~EntityBase() = default;

Name EntityBase::name() const {
   return {};
}

NamedEntity::~NamedEntity() = default;

Name NamedEntity::name() const {
   return name_;
}

StateMachine::~StateMachine() = default;

}  // namespace Qor
