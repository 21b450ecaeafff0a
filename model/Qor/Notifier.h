// Notifiers and notifiees: the notification of reactors when an entity changes.
//
// A notifier keeps an intrusive list of the notifiees bound to it, in the order of binding. One
// delivery visits them front to back. While it is under way a handler may bind, unbind, pause,
// rebind or destroy any notifiee, itself included, and may destroy the notifier:
//  - unbound or destroyed during a delivery: not visited any more;
//  - bound during a delivery: not visited by this delivery;
//  - paused: asked at each visit, so a pause takes effect at once;
//  - the notifier destroyed: the delivery ends.
// Deliveries nest freely. The mutator that starts a delivery leaves the notifier alone afterwards.
// A handler that throws ends the delivery: the notifiees behind it are not notified, and the error
// reaches the mutator's caller with the change made.
//
// A notifiee may be a follower instead of a reactor. A follower has one handler for all changes of
// any type of notifier; the handler's argument names the reactors' handler. A follower does not
// count as a watcher: it does not lengthen the life of the followed object.
//
// Binding holds no reference in either direction. A notifiee whose notifier has been destroyed is a
// zombie reactor: its notifier() is null, and the next sweep (sweepZombieReactors(), run by the
// activity loop at the end of each turn) notifies it once through qorDoZombieReactors(true). A
// notifiee that has been bound again before the sweep is not notified; that binding counts as its
// first.
#pragma once

#include <string_view>

#include "Qor/Export.h"
#include "Qor/MemberName.h"
#include "Qor/Ptr.h"

namespace Qor {

class Notifier;

class QOR_PUBLIC Notifiee {
 public:
   Notifiee(Notifiee const&) = delete;
   Notifiee& operator=(Notifiee const&) = delete;
   virtual ~Notifiee();

   // Turns delivery on (the initial state) or off without unbinding. Nothing is remembered while it
   // is off; turning it on again on a bound notifiee raises its immediate form.
   bool hasNotificationActive() const { return hears_ != Hears::nothing; }
   void hasNotificationActiveIs(bool active);

   // The sweep calls this once on a reactor whose notifier has gone. The owner may remove the
   // reactor, and the call may destroy it. The default does nothing.
   virtual void qorDoZombieReactors(bool sweep);

 protected:
   Notifiee() = default;

   // The immediate form: bring yourself in step with all collections you watch. Raised when
   // delivery is turned on again and when the notifiee is moved from one notifier to another; not
   // by a first binding, since an owner reads the current state itself when it is built.
   virtual void onImmediate();

   // Makes this a follower, for good; before it is bound.
   void followerIs();
   // A follower's one handler: `handler` is the name of the reactors' handler ("onUsedInHw"), `key`
   // points at its argument, null for a handler without one. Both last for the call.
   virtual void onChange(std::string_view handler, void const* key);

   bool bound() const { return list_ && !zombie_; }
   Notifier* notifierBase() const { return bound() ? list_ : nullptr; }
   void link(Notifier* notifier);
   void unlink();

 private:
   friend class Notifier;
   friend QOR_PUBLIC void sweepZombieReactors();

   enum class Hears : U8 { nothing, handlers, changes };

   Notifier* list_ = nullptr;      // the notifier, or the list of zombie reactors
   Notifiee* previous_ = nullptr;  // of the first: the last
   Notifiee* next_ = nullptr;
   Hears hears_ = Hears::handlers;
   bool follower_ = false;
   bool zombie_ = false;  // in the list of zombie reactors
};

// Notifies, once, every reactor whose notifier has gone since the last sweep.
QOR_PUBLIC void sweepZombieReactors();

// A pointer of its own is all that a notifier takes, since most have no notifiee: the last in the
// list is found through the first, and the deliveries in progress are those of the process.
class QOR_PUBLIC Notifier {
 public:
   Notifier() = default;
   Notifier(Notifier const&) = delete;
   Notifier& operator=(Notifier const&) = delete;
   ~Notifier() {
      if (head_ || walks_) [[unlikely]] {
         end();
      }
   }

   // Whether reactors are bound; followers do not count.
   bool hasNotifiees() const { return firstReactor(head_) != nullptr; }

 protected:
   // Calls `call(Notifiee&)` on every bound, active reactor, and notifies followers of the change
   // with the name `handler` and with `key`.
   template <class Call>
   void deliver(Call const& call, std::string_view handler, void const* key) {
      Notifiee* const first = head_;
      if (!first) return;
      if (!first->next_) [[likely]] {  // its handler may destroy the notifier
         tell(*first, call, handler, key);
      } else {
         deliverToAll(call, handler, key);
      }
   }

   // Whether `notifiee` is the only reactor bound.
   bool isOnly(Notifiee const& notifiee) const {
      return firstReactor(head_) == &notifiee && !firstReactor(notifiee.next_);
   }

 private:
   friend class Notifiee;
   friend QOR_PUBLIC void sweepZombieReactors();

   template <class Call>
   [[gnu::noinline]] void deliverToAll(Call const& call, std::string_view handler,
                                       void const* key) {
      Walk walk(this);
      while (Notifiee* notifiee = walk.take())
         tell(*notifiee, call, handler, key);
   }
   template <class Call>
   static void tell(Notifiee& notifiee, Call const& call, std::string_view handler,
                    void const* key) {
      if (notifiee.hears_ == Notifiee::Hears::handlers) [[likely]] {
         call(notifiee);
      } else if (notifiee.hears_ == Notifiee::Hears::changes) {
         notifiee.onChange(handler, key);
      }
   }

   // One delivery in progress, on the deliverer's stack. `next` is stepped past a notifiee before
   // it is called, and moved on by unlink(); `last` is the tail at the start.
   struct Walk {
      // A walk takes itself off the process's walks when it ends, where the optimizer sees the
      // address of a local object kept.
#pragma GCC diagnostic push
#if __GNUC__ >= 12 && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
      explicit Walk(Notifier* n)
            : notifier(n),
              outer(walks_),
              next(n->head_),
              last(n->head_ ? n->head_->previous_ : nullptr) {
         walks_ = this;
      }
#pragma GCC diagnostic pop
      ~Walk() {
         walks_ = outer;
      }
      Walk(Walk const&) = delete;
      Walk& operator=(Walk const&) = delete;
      Notifiee* take() {
         Notifiee* const taken = next;
         if (taken) next = taken == last ? nullptr : taken->next_;
         return taken;
      }

      Notifier* notifier;  // null when it has gone
      Walk* const outer;
      Notifiee* next;
      Notifiee* last;
   };

   // From `notifiee` on.
   static Notifiee* firstReactor(Notifiee* notifiee) {
      while (notifiee && notifiee->follower_)
         notifiee = notifiee->next_;
      return notifiee;
   }
   void append(Notifiee* notifiee);
   void remove(Notifiee* notifiee);
   void end();
   static Notifier& zombieReactors();

   static Walk* walks_;  // the innermost delivery in progress
   Notifiee* head_ = nullptr;
};

// The notifier side of entity type T, whose nested class T::Notifiee has one virtual handler per
// attribute and collection.
template <class T>
class NotifierOf : public Notifier {
 protected:
   template <auto Handler, class... Args>
   void notify(Args const&... args) const {
      static_assert(sizeof...(Args) <= 1);
      void const* key = nullptr;
      ((key = &args), ...);
      const_cast<NotifierOf*>(this)->deliver(
            [&](Qor::Notifiee& n) { (static_cast<typename T::Notifiee&>(n).*Handler)(args...); },
            memberName<Handler>(), key);
   }

 private:
   template <class U>
   friend class NotifieeOf;
};

// A reactor's side: T::Notifiee derives from it. It watches one T, through a const pointer,
// since watching changes nothing.
template <class T>
class NotifieeOf : public Notifiee {
 public:
   ~NotifieeOf() override { unbind(); }

   // Null when unbound or when the notifier has been destroyed.
   T const* notifier() const {
      Notifier* const base = notifierBase();
      return base ? static_cast<T const*>(static_cast<NotifierOf<T>*>(base)) : nullptr;
   }

   // Binds to `object`, leaving the notifier bound before; null only unbinds. Nothing happens when
   // it is bound to this object already. Moving from one notifier to another raises the immediate
   // form.
   void notifierIs(T const* object) {
      T const* const before = notifier();
      if (before == object) return;
      Ptr<T const> const held = unbind();
      if (!object) return;
      link(static_cast<NotifierOf<T>*>(const_cast<T*>(object)));
      if (before && hasNotificationActive()) onImmediate();
   }
   void notifierIs(Ptr<T const> const& object) { notifierIs(object.get()); }

 private:
   // Returns the notifier if it lives only by this binding: dropping the reference then runs its
   // zero-references handler, when this object is no longer needed.
   Ptr<T const> unbind() {
      T const* const object = notifier();
      Ptr<T const> held;
      if (object && object->livesUnreferenced() &&
          static_cast<NotifierOf<T> const*>(object)->isOnly(*this)) {
         held = object;
      }
      unlink();
      return held;
   }
};

}  // namespace Qor
