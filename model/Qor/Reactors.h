// How an owner holds its reactors: one for an entity that an attribute names, or one for each
// member of a directory that it follows. Reactors are classes of their owner; they point back at it
// without holding it, and the owner makes and deletes them as the attribute is set and the members
// come and go.
//
// A release clears the back pointer and unbinds the reactor in one step, so no handler is called
// with a null owner.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Qor/Clock.h"
#include "Qor/Collection.h"

namespace Qor {

// Gives a reactor its back pointer. The reactor classes of an owner spell it by the owner's name.
template <class Owner>
class OwnedReactor {
 public:
   Owner* owner() const { return owner_; }
   void ownerIs(Owner* owner) { owner_ = owner; }

 private:
   Owner* owner_ = nullptr;
};

// Ends a reactor's part in the life of its owner: it watches nothing and makes no calls any more.
template <class Reactor>
void releaseReactor(Reactor& reactor) {
   reactor.ownerIs(nullptr);
   reactor.notifierIs(nullptr);
}

// An attribute that names an entity, held counted, and the reactor that watches it, which is there
// exactly while the attribute is not null. The owner notifies of a change, once all that depends on
// the attribute has been updated; the owner holds a reference to itself until then.
template <class T, class Reactor>
class Watched {
 public:
   Ptr<T> const& object() const { return object_; }
   Reactor* reactor() const { return reactor_.get(); }

   // Returns whether that is a change. The entity is in place before the reactor is bound: a
   // reactor that moves brings itself in step at once, by the new one.
   template <class Owner>
   bool is(Owner* owner, Ptr<T> object) {
      Ptr<T> const before = std::exchange(object_, object);
      if (!object) {
         reactor_.reset();
      } else {
         if (!reactor_) {
            reactor_ = std::make_unique<Reactor>();
            reactor_->ownerIs(owner);
         }
         reactor_->notifierIs(object.get());
      }
      return before != object;
   }
   void release() {
      if (reactor_) releaseReactor(*reactor_);
   }

 private:
   Ptr<T> object_;
   std::unique_ptr<Reactor> reactor_;
};

// A clock and the reactor on it. A clock that replaces another takes over its setting, and the
// former clock is disarmed, since it has no reactor any more.
template <class Reactor>
class WatchedClock : public Watched<Clock const, Reactor> {
 public:
   template <class Owner>
   bool is(Owner* owner, Ptr<Clock const> clock) {
      Ptr<Clock const> const before = this->object();
      if (before == clock) return false;
      Seconds const setting = before ? before->timeMin() : never;
      Watched<Clock const, Reactor>::is(owner, clock);
      if (before) before->timeMinIs(never);
      if (clock) clock->timeMinIs(setting);
      return true;
   }
   // Arms, or disarms; without a clock nothing is done.
   void arm(Seconds time) const {
      if (this->object()) this->object()->timeMinIs(time);
   }
};

// One reactor for each member of a directory. `Reactor` is made of a counted pointer to the member.
// It is a collection of the owner, which spells its operations as one-line members, as with
// Qor::Collection. Its operations hold the owner, and notify by Each and Immediate.
template <class K, class Reactor, auto Each, auto Immediate>
class ReactorColl {
 public:
   using Key = K;
   using Map = HashMap<K, std::unique_ptr<Reactor>>;
   using Iterator = typename Map::ConstIterator;

   // The handlers, as the type's description names them.
   static constexpr auto each = Each;
   static constexpr auto immediate = Immediate;

   Map const& map() const { return reactors_; }
   // Null for a key without one.
   Reactor* find(K const& key) const {
      auto const* const entry = reactors_.find(key);
      return entry ? entry->second.get() : nullptr;
   }
   U32 size() const { return reactors_.size(); }

   // The same member set again keeps its reactor, another member under the key gets a new one.
   template <class Owner, class Member>
   void is(Owner& owner, K key, Ptr<Member> const& member) {
      Ptr<Owner> const held(&owner);
      Reactor* const there = find(key);
      if (there && there->notifier() == member.get()) return;
      auto reactor = std::make_unique<Reactor>(member);
      reactor->ownerIs(&owner);
      reactor->notifierIs(member.get());
      auto const replaced = taken(key);
      reactors_.insert(key, std::move(reactor));
      owner.template notify<Each>(key);
   }
   template <class Owner>
   void del(Owner& owner, K key) {
      Ptr<Owner> const held(&owner);
      if (auto const removed = taken(key)) owner.template notify<Each>(key);
   }
   template <class Owner>
   Iterator del(Owner& owner, Iterator it) {
      K const key = it->first;
      del(owner, key);
      return reactors_.resume(it, key);
   }
   template <class Owner>
   void delAll(Owner& owner) {
      if (reactors_.empty()) return;
      Ptr<Owner> const held(&owner);
      Map const removed = reactors_.takeAll();
      for (auto const& [key, reactor] : removed)
         releaseReactor(*reactor);
      owner.template notify<Immediate>();
   }
   template <class Owner>
   void notify(Owner& owner, K key) {
      owner.template notify<Each>(key);
   }

   // One reactor for each member, and none besides. `members()` is the directory's map at present,
   // null without a directory; `track` makes the reactor of one member. For each key
   // the directory of that moment decides: a listener may have changed it, or set another.
   template <class Owner, class Members, class Track>
   void sync(Owner& owner, Members const& members, Track const& track) {
      Ptr<Owner> const held(&owner);
      std::vector<K> keys;
      auto const* const now = members();
      if (now) {
         for (auto const& [key, member] : *now)
            keys.push_back(key);
      }
      for (auto const& [key, reactor] : reactors_) {
         if (!now || !now->find(key)) keys.push_back(key);
      }
      for (K const& key : keys) {
         auto const* const directory = members();
         auto const* const entry = directory ? directory->find(key) : nullptr;
         if (!entry) {
            del(owner, key);
         } else {
            auto const member = entry->second;
            track(member);
         }
      }
   }

   // Ends the part of all of them in the life of the owner; they stay where they are.
   void release() {
      for (auto const& [key, reactor] : reactors_)
         releaseReactor(*reactor);
   }

 private:
   // Takes one out, which watches nothing from then on.
   std::unique_ptr<Reactor> taken(K const& key) {
      auto removed = reactors_.take(key);
      if (!removed) return nullptr;
      releaseReactor(**removed);
      return std::move(*removed);
   }

   Map reactors_;
};

}  // namespace Qor
