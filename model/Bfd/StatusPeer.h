// The directory with which applications register for BFD sessions. The BFD service owns the
// directory and watches `registration`. It adds the sessions of the registered VRF to the
// application's AppStatus and keeps them up to date.
//
// An application registers by a Bfd::AppRegistration, which is the only writer of the collection. A
// const pointer to the directory suffices for it.
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
      // An application registered under this number or withdrew its registration.
      virtual void onRegistration(Qor::U32) {}
      virtual void onRegistrationImmediate() {}

    protected:
      void onImmediate() override { onRegistrationImmediate(); }
   };
   // Keyed by the number of the registration, from 1. The name of the application is no key, since
   // the reactors of several chips register under one name and each withdraws its own registration.
   using RegistrationColl =
         Qor::Collection<Qor::OrderedMap<Qor::U32, Registration>, &Notifiee::onRegistration,
                         &Notifiee::onRegistrationImmediate>;

   explicit StatusPeer(Qor::Name name = "bfdStatusPeer") : Entity(std::move(name)) {}

   RegistrationColl::Map const& registration() const { return registration_.map(); }
   // Returns a registration whose appStatus is null for an unknown number.
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

// Registers an application as long as this object exists.
class AppRegistration final : public Qor::RefCounted {
 public:
   // A null directory raises RangeException "null _bfdAllPeerStatusDir parameter to mutator for
   // Bfd::AppRegistration::bfdAllPeerStatusDir not allowed""; a null status raises the same error
   // for bfdAllPeerStatus.
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
