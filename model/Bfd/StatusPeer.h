// The directory with which an application registers to be told about BFD sessions. The BFD service
// owns it and watches `registration`: it fills the registered application's AppStatus with the
// sessions of that VRF and keeps them up to date.
//
// Applications do not write the collection themselves; they hold a Bfd::AppRegistration. They see
// the directory as const, since registering is for whoever may look at it.
#pragma once

#include <utility>

#include "Bfd/AppStatus.h"
#include "L3/VrfName.h"
#include "Qor/Collection.h"

namespace Bfd {

struct Registration final {
   Qor::Name appName;  // may be empty
   L3::VrfName vrfName;
   Qor::Ptr<AppStatus> appStatus;

   friend bool operator==(Registration const&, Registration const&) = default;
};

class StatusPeer final : public Qor::Entity<StatusPeer, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<StatusPeer> {
    public:
      // An application registered under this number or took its registration back.
      virtual void onRegistration(Qor::U32) {}
      virtual void onRegistrationImmediate() {}

    protected:
      void onImmediate() override { onRegistrationImmediate(); }
   };
   // Keyed by a number that counts registrations from 1, and not by name: the reactors of several
   // chips register under one name, and each takes back its own.
   using RegistrationColl =
         Qor::Collection<Qor::OrderedMap<Qor::U32, Registration>, &Notifiee::onRegistration,
                         &Notifiee::onRegistrationImmediate>;

   explicit StatusPeer(Qor::Name name = "bfdStatusPeer") : Entity(std::move(name)) {}

   RegistrationColl::Map const& registration() const { return registration_.map(); }
   // An empty registration, whose appStatus is null, for an unknown number.
   Registration registration(Qor::U32 number) const { return registration_.value(number); }

 private:
   friend class AppRegistration;
   ~StatusPeer() override = default;

   Qor::U32 registrationIs(Registration r) const {
      Qor::U32 const number = ++lastNumber_;
      registration_.is(*this, number, std::move(r));
      return number;
   }
   void registrationDel(Qor::U32 number) const { registration_.del(*this, number); }

   mutable Qor::U32 lastNumber_ = 0;
   mutable RegistrationColl registration_;
};

// Registers an application for as long as it exists.
class AppRegistration final : public Qor::RefCounted {
 public:
   // RangeException "null _bfdAllPeerStatusDir parameter to mutator for
   // Bfd::AppRegistration::bfdAllPeerStatusDir not allowed"", and likewise for bfdAllPeerStatus.
   AppRegistration(Qor::Name appName, Qor::Ptr<StatusPeer const> bfdAllPeerStatusDir,
                   Qor::Ptr<AppStatus> bfdAllPeerStatus, L3::VrfName vrfName)
         : dir_(std::move(bfdAllPeerStatusDir)) {
      if (!dir_) Qor::throwNullParameter("Bfd::AppRegistration", "bfdAllPeerStatusDir");
      if (!bfdAllPeerStatus) Qor::throwNullParameter("Bfd::AppRegistration", "bfdAllPeerStatus");
      number_ = dir_->registrationIs(
            {std::move(appName), std::move(vrfName), std::move(bfdAllPeerStatus)});
   }

 private:
   ~AppRegistration() override { dir_->registrationDel(number_); }

   Qor::Ptr<StatusPeer const> const dir_;
   Qor::U32 number_ = 0;
};

}  // namespace Bfd
