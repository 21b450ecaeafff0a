// How an owner holds its reactors: one for an entity that an attribute names, or one for each
// member of a directory that it follows. Reactors are classes of their owner; they point back at it
// without holding it, and the owner makes and deletes them as the attribute is set and the members
// come and go.
//
// A back pointer that is null says that the owner is on its way out: whoever releases a reactor has
// it watch nothing first, so no handler meets that.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Qor/Clock.h"
#include "Qor/HashMap.h"

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

// Ends a reactor's part in the life of its owner: it watches nothing and calls nobody from now on.
template <class Reactor>
void releaseReactor(Reactor& reactor) {
   reactor.ownerIs(nullptr);
   reactor.notifierIs(nullptr);
}

// An attribute that names an entity, held counted, and the reactor that watches it, which is there
// exactly while the attribute is not null.
template <class T, class Reactor>
class Watched {
 public:
   Ptr<T> const& object() const { return object_; }
   Reactor* reactor() const { return reactor_.get(); }

   // The entity is in place before the reactor is bound: a reactor that moves brings itself in step
   // at once, by the new one.
   template <class Owner>
   void is(Owner* owner, Ptr<T> object) {
      Ptr<T> const before = std::exchange(object_, object);
      if (!object) {
         reactor_.reset();
         return;
      }
      if (!reactor_) {
         reactor_ = std::make_unique<Reactor>();
         reactor_->ownerIs(owner);
      }
      reactor_->notifierIs(object.get());
   }
   void release() {
      if (reactor_) releaseReactor(*reactor_);
   }

 private:
   Ptr<T> object_;
   std::unique_ptr<Reactor> reactor_;
};

// A clock and the reactor on it. A clock that replaces another takes over what that was set to, and
// the other is disarmed: it would fire for nobody.
template <class Reactor>
class WatchedClock : public Watched<Clock const, Reactor> {
 public:
   template <class Owner>
   void is(Owner* owner, Ptr<Clock const> clock) {
      Ptr<Clock const> const before = this->object();
      if (before == clock) return;
      Seconds const setting = before ? before->timeMin() : never;
      Watched<Clock const, Reactor>::is(owner, clock);
      if (before) before->timeMinIs(never);
      if (clock) clock->timeMinIs(setting);
   }
   // Arms, or disarms; without a clock nothing is done.
   void arm(Seconds time) const {
      if (this->object()) this->object()->timeMinIs(time);
   }
};

// One reactor for each member of a directory. `Reactor` is made of a counted pointer to the member.
template <class K, class Reactor>
class ReactorColl {
 public:
   using Map = HashMap<K, std::unique_ptr<Reactor>>;

   Map const& map() const { return reactors_; }
   // Null for a key without one.
   Reactor* find(K const& key) const {
      auto const* const entry = reactors_.find(key);
      return entry ? entry->second.get() : nullptr;
   }
   U32 size() const { return reactors_.size(); }

   // The same member set again keeps its reactor, another member under the key gets a new one.
   template <class Owner, class Member>
   void is(Owner* owner, K key, Ptr<Member> const& member) {
      Reactor* const there = find(key);
      if (there && there->notifier() == member.get()) return;
      auto reactor = std::make_unique<Reactor>(member);
      reactor->ownerIs(owner);
      reactor->notifierIs(member.get());
      reactors_.take(key);
      reactors_.insert(key, std::move(reactor));
   }
   void del(K const& key) { reactors_.take(key); }

   // One reactor for each member, made by `track`, and none besides; no directory has no members.
   template <class Members, class Track>
   void sync(Members const* members, Track const& track) {
      if (members) {
         for (auto const& [key, member] : *members)
            track(member);
      }
      std::vector<K> gone;
      for (auto const& [key, reactor] : reactors_) {
         if (!members || !members->find(key)) gone.push_back(key);
      }
      for (K const& key : gone)
         reactors_.take(key);
   }

   // Lets them all go.
   void release() {
      for (auto const& [key, reactor] : reactors_)
         releaseReactor(*reactor);
      reactors_.clear();
   }

 private:
   Map reactors_;
};

}  // namespace Qor
