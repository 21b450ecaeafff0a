// Whether the switch forwards IP packets. The IP layer writes it. The programmers of the
// synchronous path are built with it and hand it to their platform.
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
