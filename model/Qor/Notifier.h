// Notifiers and notifiees: who is told when something changes.
//
// A notifier keeps an intrusive list of the notifiees bound to it, in the order of binding. One
// delivery visits them front to back. While it is under way a handler may bind, unbind, pause,
// rebind or destroy any notifiee, itself included, and may destroy the notifier:
//  - unbound or destroyed during a delivery: not visited any more;
//  - bound during a delivery: not visited by this delivery;
//  - paused: asked at each visit, so a pause takes effect at once;
//  - the notifier destroyed: the delivery ends.
// Deliveries nest freely. Whoever starts one touches nothing of the notifier afterwards. A handler
// that throws ends the delivery: those behind it are not told, and the error reaches the mutator's
// caller with the change made.
//
// Binding holds no reference in either direction. A notifiee whose notifier has been destroyed is a
// zombie reactor: its notifier() is null, and the next sweep (sweepZombieReactors(), run by the
// activity loop at the end of each turn) tells it once through qorDoZombieReactors(true), unless it
// has been bound again by then, which counts as a first binding.
#pragma once

#include "Qor/Export.h"
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
   bool hasNotificationActive() const { return active_; }
   void hasNotificationActiveIs(bool active);

   // The sweep's word to a reactor whose notifier has gone: the owner may remove it now, and
   // the reactor may be destroyed inside. The default does nothing.
   virtual void qorDoZombieReactors(bool sweep);

 protected:
   Notifiee() = default;

   // The immediate form: bring yourself in step with all collections you watch. Raised when
   // delivery is turned on again and when the notifiee is moved from one notifier to another; not
   // by a first binding, since an owner reads the current state itself when it is built.
   virtual void onImmediate();

   bool bound() const { return list_ && !zombie_; }
   Notifier* notifierBase() const { return bound() ? list_ : nullptr; }
   void link(Notifier* notifier);
   void unlink();

 private:
   friend class Notifier;
   friend QOR_PUBLIC void sweepZombieReactors();

   Notifier* list_ = nullptr;  // the notifier, or the list of zombie reactors
   Notifiee* previous_ = nullptr;
   Notifiee* next_ = nullptr;
   bool active_ = true;
   bool zombie_ = false;  // in the list of zombie reactors
};

// Tells every reactor whose notifier has gone since the last sweep, once.
QOR_PUBLIC void sweepZombieReactors();

class QOR_PUBLIC Notifier {
 public:
   Notifier() = default;
   Notifier(Notifier const&) = delete;
   Notifier& operator=(Notifier const&) = delete;
   ~Notifier();

   bool hasNotifiees() const { return head_ != nullptr; }

 protected:
   // Calls `call(Notifiee&)` on every bound, active notifiee.
   template <class Call>
   void deliver(Call const& call) {
      Notifiee* const first = head_;
      if (!first) return;
      if (first == tail_) [[likely]] {  // nobody comes after it, whatever it does
         if (first->active_) call(*first);
      } else {
         deliverToAll(call);
      }
   }

   // Whether `notifiee` is the only one bound.
   bool isOnly(Notifiee const& notifiee) const { return head_ == &notifiee && tail_ == &notifiee; }

 private:
   friend class Notifiee;
   friend QOR_PUBLIC void sweepZombieReactors();

   template <class Call>
   [[gnu::noinline]] void deliverToAll(Call const& call) {
      Walk walk(this);
      while (Notifiee* notifiee = walk.take()) {
         if (notifiee->active_) call(*notifiee);
      }
   }

   // One delivery in progress, on the deliverer's stack. `next` is stepped past a notifiee before
   // it is called, and moved on by unlink(); `last` is the tail at the start.
   struct Walk {
      // A walk takes itself off its notifier when it ends. The optimizer warns of the path on which
      // the notifier has gone before, where nothing is left that could refer to the walk.
#pragma GCC diagnostic push
#if __GNUC__ >= 12 && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
      explicit Walk(Notifier* n) : notifier(n), outer(n->walks_), next(n->head_), last(n->tail_) {
         n->walks_ = this;
      }
#pragma GCC diagnostic pop
      ~Walk() {
         if (notifier) notifier->walks_ = outer;
      }
      Walk(Walk const&) = delete;
      Walk& operator=(Walk const&) = delete;
      Notifiee* take() {
         Notifiee* const taken = next;
         if (taken) next = taken == last ? nullptr : taken->next_;
         return taken;
      }

      Notifier* notifier;
      Walk* outer;
      Notifiee* next;
      Notifiee* last;
   };

   void append(Notifiee* notifiee);
   void remove(Notifiee* notifiee);
   static Notifier& zombieReactors();

   Notifiee* head_ = nullptr;
   Notifiee* tail_ = nullptr;
   Walk* walks_ = nullptr;
};

// The notifier side of entity type T, whose nested class T::Notifiee has one virtual handler per
// attribute and collection.
template <class T>
class NotifierOf : public Notifier {
 protected:
   template <auto Handler, class... Args>
   void notify(Args const&... args) const {
      const_cast<NotifierOf*>(this)->deliver(
            [&](Qor::Notifiee& n) { (static_cast<typename T::Notifiee&>(n).*Handler)(args...); });
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
