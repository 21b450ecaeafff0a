// Entities: named, counted heap objects with attributes, collections and notifiees.
//
// An entity class spells each attribute's names in its source, so that grep finds them:
//
//    class Route final : public Qor::Entity<Route> {
//     public:
//       class Notifiee : public Qor::NotifieeOf<Route> {
//        public:
//          virtual void onFastdrop() {}
//       };
//       bool fastdrop() const { return fastdrop_; }
//       void fastdropIs(bool v) { attrIs<&Notifiee::onFastdrop>(fastdrop_, v); }
//     private:
//       bool fastdrop_ = false;
//    };
//
// Where an entity class derives from another, each level has notifiees of its own for
// that level's attributes: class AsyncSwitchChip : public Entity<AsyncSwitchChip, SwitchChipBase>.
//
// A notification names the attribute or the key, not the new value: the reactor reads the value.
#pragma once

#include <utility>

#include "Qor/Export.h"
#include "Qor/Map.h"
#include "Qor/Notifier.h"
#include "Qor/Types.h"

namespace Qor {

class QOR_PUBLIC EntityBase : public RefCounted {
 public:
   // Empty for entities that are known by their place in a collection alone.
   virtual Name name() const;

 protected:
   EntityBase() = default;
   ~EntityBase() override;
};

class QOR_PUBLIC NamedEntity : public EntityBase {
 public:
   Name name() const override;

 protected:
   explicit NamedEntity(Name name) : name_(std::move(name)) {}
   ~NamedEntity() override;

 private:
   Name const name_;
};

template <class T, class Base = EntityBase>
class Entity : public Base, public NotifierOf<T> {
 public:
   // Whether reactors are bound to the entity, on this level or on one below; followers do not
   // count.
   bool hasNotifiees() const {
      if (static_cast<NotifierOf<T> const&>(*this).hasNotifiees()) return true;
      if constexpr (requires(Base const& base) { base.hasNotifiees(); }) {
         return Base::hasNotifiees();
      }
      return false;
   }

 protected:
   using Base::Base;
   using NotifierOf<T>::notify;

   // Stores a changed value and notifies; an equal value does nothing. The old value is
   // let go last. Nothing of the entity is touched after the notification.
   template <auto Handler, class V>
   void attrIs(V& attribute, std::type_identity_t<V> value) {
      if (attribute == value) return;
      [[maybe_unused]] V const old = std::exchange(attribute, std::move(value));
      this->template notify<Handler>();
   }

   // For records whose notifiees are visited on every store, equal values included.
   template <auto Handler, class V>
   void attrStore(V& attribute, std::type_identity_t<V> value) {
      [[maybe_unused]] V const old = std::exchange(attribute, std::move(value));
      this->template notify<Handler>();
   }

 private:
   template <Map M, auto Each, auto Immediate>
   friend class Collection;
   template <Map Forward, Map Backward, auto EachKey, auto ImmediateKey, auto EachValue,
             auto ImmediateValue>
   friend class TwoWayCollection;
   template <class K, class Reactor, auto Each, auto Immediate>
   friend class ReactorColl;
};

// The base of the framework-level state machines (classes whose names end in Sm): long-lived
// reactors that own nested reactors. One with attributes that others follow is an
// Entity<..., StateMachine>. The two answers are fixed.
class QOR_PUBLIC StateMachine : public NamedEntity {
 public:
   String fwkType() const { return "stateMachine"; }
   String qorFwkActivity() const { return "reactive"; }

 protected:
   using NamedEntity::NamedEntity;
   ~StateMachine() override;
};

}  // namespace Qor
