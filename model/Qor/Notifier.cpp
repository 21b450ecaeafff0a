#include "Qor/Notifier.h"

namespace Qor {

Notifiee::~Notifiee() {
   unlink();
}

void Notifiee::hasNotificationActiveIs(bool active) {
   if (hasNotificationActive() == active) return;
   hears_ = !active ? Hears::nothing : follower_ ? Hears::changes : Hears::handlers;
   if (active && bound()) onImmediate();
}

void Notifiee::qorDoZombieReactors(bool) {}

void Notifiee::onImmediate() {}

void Notifiee::followerIs() {
   QOR_ASSERT(!bound());
   follower_ = true;
   if (hasNotificationActive()) hears_ = Hears::changes;
}

void Notifiee::onChange(std::string_view, void const*) {}

void Notifiee::link(Notifier* notifier) {
   QOR_ASSERT(list_ == nullptr);
   notifier->append(this);
}

void Notifiee::unlink() {
   if (list_) list_->remove(this);
}

Notifier::Walk* Notifier::walks_ = nullptr;

void Notifier::end() {
   for (Walk* walk = walks_; walk; walk = walk->outer) {
      if (walk->notifier != this) continue;
      walk->notifier = nullptr;
      walk->next = nullptr;
   }
   while (Notifiee* notifiee = head_) {
      remove(notifiee);
      zombieReactors().append(notifiee);
      notifiee->zombie_ = true;
   }
}

void Notifier::append(Notifiee* notifiee) {
   notifiee->list_ = this;
   notifiee->next_ = nullptr;
   if (head_) {
      notifiee->previous_ = head_->previous_;
      notifiee->previous_->next_ = notifiee;
   } else {
      head_ = notifiee;
   }
   head_->previous_ = notifiee;
}

void Notifier::remove(Notifiee* notifiee) {
   for (Walk* walk = walks_; walk; walk = walk->outer) {
      if (walk->notifier != this) continue;
      if (walk->next == notifiee) {
         walk->next = notifiee == walk->last ? nullptr : notifiee->next_;
      } else if (walk->last == notifiee && walk->next) {
         walk->last = notifiee->previous_;  // it is not the first: `next` comes before it
      }
   }
   Notifiee* const last = head_->previous_;
   (notifiee == head_ ? head_ : notifiee->previous_->next_) = notifiee->next_;
   if (notifiee != last) {
      notifiee->next_->previous_ = notifiee->previous_;
   } else if (head_) {
      head_->previous_ = notifiee->previous_;
   }
   notifiee->list_ = nullptr;
   notifiee->zombie_ = false;
   notifiee->previous_ = notifiee->next_ = nullptr;
}

// Never destroyed, so that reactors with static storage may leave it in any order.
Notifier& Notifier::zombieReactors() {
   static Notifier* const list = new Notifier;
   return *list;
}

void sweepZombieReactors() {
   Notifier& list = Notifier::zombieReactors();
   if (!list.head_) return;
   Notifier::Walk walk(&list);
   while (Notifiee* notifiee = walk.take()) {
      list.remove(notifiee);
      notifiee->qorDoZombieReactors(true);
   }
}

}  // namespace Qor
