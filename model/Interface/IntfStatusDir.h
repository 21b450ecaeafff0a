// The base of the interface status directories: interface statuses keyed by interface. `Dir` is the
// directory type and `Status` the type of its members.
//
// The interface layer adds and removes members. A status may be a member of several directories. An
// owner of reactors watches intfStatus, so that it has one reactor per interface.
#pragma once

#include <utility>

#include "Lnet/IntfId.h"
#include "Qor/Collection.h"
#include "Qor/Entity.h"
#include "Qor/Exception.h"

namespace Interface {

template <class Dir, class Status>
class IntfStatusDir : public Qor::Entity<Dir, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Dir> {
    public:
      // An interface was added or removed, or has another status entity. A change of the status
      // notifies the notifiees of the status alone.
      virtual void onIntfStatus(Lnet::IntfId) {}
      virtual void onIntfStatusImmediate() {}

    protected:
      void onImmediate() override { onIntfStatusImmediate(); }
   };
   using StatusPtr = Qor::Ptr<Status>;
   using IntfStatusColl =
         Qor::Collection<Qor::HashMap<Lnet::IntfId, StatusPtr>, &Notifiee::onIntfStatus,
                         &Notifiee::onIntfStatusImmediate>;

   typename IntfStatusColl::Map const& intfStatus() const { return intfStatus_.map(); }
   // Returns null for an interface that is not in the directory.
   StatusPtr intfStatus(Lnet::IntfId intfId) const { return intfStatus_.value(intfId); }
   // Makes the member, or returns the present one.
   StatusPtr newIntfStatus(Lnet::IntfId intfId) {
      return intfStatus_.instantiate(*this, intfId, [&] { return Qor::make<Status>(intfId); });
   }
   // Inserts or replaces the member of the status's interface. A null pointer raises RangeException
   // "null _intfStatus parameter to mutator for Interface::<directory>::intfStatus not allowed"".
   void intfStatusIs(StatusPtr status) {
      if (!status) Qor::throwNullParameter(Dir::typeName, "intfStatus");
      intfStatus_.is(*this, status->intfId(), status);
   }
   void intfStatusDel(Lnet::IntfId intfId) { intfStatus_.del(*this, intfId); }
   typename IntfStatusColl::Iterator intfStatusDel(typename IntfStatusColl::Iterator it) {
      return intfStatus_.del(*this, it);
   }
   void intfStatusDelAll() { intfStatus_.delAll(*this); }
   void intfStatusNotify(Lnet::IntfId intfId) { intfStatus_.notify(*this, intfId); }

 protected:
   explicit IntfStatusDir(Qor::Name name) : Qor::Entity<Dir, Qor::NamedEntity>(std::move(name)) {}
   ~IntfStatusDir() override = default;

 private:
   IntfStatusColl intfStatus_;
};

}  // namespace Interface
