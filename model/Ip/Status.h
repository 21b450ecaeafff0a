// Whether the switch routes IP packets. The IP layer writes the status. The programmer and the
// top-level reactor of the synchronous path hold it for the platform and do not read it.
#pragma once

#include <utility>

#include "Qor/Entity.h"

namespace Ip {

class Status final : public Qor::Entity<Status, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Status> {
    public:
      virtual void onRouting() {}
   };

   explicit Status(Qor::Name name = "ipStatus") : Entity(std::move(name)) {}

   bool routing() const { return routing_; }
   void routingIs(bool v) { attrIs<&Notifiee::onRouting>(routing_, v); }

 private:
   ~Status() override = default;

   bool routing_ = false;
};

}  // namespace Ip
