// The BFD sessions of interest to one application. The BFD service adds and removes the sessions
// for an application that is registered with Bfd::StatusPeer. The application has one reactor per
// session.
#pragma once

#include <utility>

#include "Bfd/BfdPeerStatus.h"
#include "Qor/Collection.h"
#include "Qor/Exception.h"

namespace Bfd {

class AppStatus final : public Qor::Entity<AppStatus, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<AppStatus> {
    public:
      // A session was added or removed, or has another status entity. A change of the status
      // notifies the notifiees of the status alone.
      virtual void onPeerStatus(Peer const&) {}
      virtual void onPeerStatusImmediate() {}

    protected:
      void onImmediate() override { onPeerStatusImmediate(); }
   };
   using StatusPtr = Qor::Ptr<BfdPeerStatus>;
   using PeerStatusColl = Qor::Collection<Qor::HashMap<Peer, StatusPtr>, &Notifiee::onPeerStatus,
                                          &Notifiee::onPeerStatusImmediate>;

   explicit AppStatus(Qor::Name name = "bfdAppStatus") : Entity(std::move(name)) {}

   PeerStatusColl::Map const& peerStatus() const { return peerStatus_.map(); }
   // Returns null for a peer without a session.
   StatusPtr peerStatus(Peer const& peer) const { return peerStatus_.value(peer); }
   // Makes the session's status, or returns the present one.
   StatusPtr newPeerStatus(Peer peer) {
      return peerStatus_.instantiate(*this, peer, [&] { return Qor::make<BfdPeerStatus>(peer); });
   }
   // Inserts or replaces the status of its peer. A null pointer raises RangeException "null
   // _peerStatus parameter to mutator for Bfd::AppStatus::peerStatus not allowed"".
   void peerStatusIs(StatusPtr status) {
      if (!status) Qor::throwNullParameter("Bfd::AppStatus", "peerStatus");
      peerStatus_.is(*this, status->peer(), status);
   }
   void peerStatusDel(Peer peer) { peerStatus_.del(*this, peer); }
   PeerStatusColl::Iterator peerStatusDel(PeerStatusColl::Iterator it) {
      return peerStatus_.del(*this, it);
   }
   void peerStatusDelAll() { peerStatus_.delAll(*this); }
   void peerStatusNotify(Peer peer) { peerStatus_.notify(*this, peer); }

 private:
   ~AppStatus() override = default;

   PeerStatusColl peerStatus_;
};

}  // namespace Bfd
