// The BFD sessions that matter to one application. The BFD service adds and removes them for an
// application that is registered with Bfd::StatusPeer; the application keeps one reactor for each.
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
      // A session was added or removed, or has another status entity. Not told when its state
      // changes: that entity has notifiees of its own.
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
   // Null for a peer that is not here.
   StatusPtr peerStatus(Peer const& peer) const { return peerStatus_.value(peer); }
   StatusPtr newPeerStatus(Peer peer) {
      return peerStatus_.instantiate(*this, peer, [&] { return Qor::make<BfdPeerStatus>(peer); });
   }
   // Under the status's own peer. RangeException "null _peerStatus parameter to mutator for
   // Bfd::AppStatus::peerStatus not allowed"" for a null one.
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
