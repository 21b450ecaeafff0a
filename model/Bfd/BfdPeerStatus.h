// The status of one BFD session. The BFD service makes and writes it. The fast reroute of the
// asynchronous path watches the state.
#pragma once

#include <utility>

#include "Bfd/OperState.h"
#include "Bfd/Peer.h"
#include "Qor/Entity.h"
#include "Qor/TextStream.h"

namespace Bfd {

class BfdPeerStatus final : public Qor::Entity<BfdPeerStatus> {
 public:
   class Notifiee : public Qor::NotifieeOf<BfdPeerStatus> {
    public:
      virtual void onStatus() {}
      virtual void onIntf() {}
   };

   explicit BfdPeerStatus(Peer peer) : peer_(std::move(peer)), intf_(peer_.intfId()) {}

   Qor::Name name() const override { return Qor::printed(peer_); }
   Peer const& peer() const { return peer_; }
   // The state of the session. Initially adminDown, until the session starts.
   OperState status() const { return status_; }
   void statusIs(OperState v) { attrIs<&Notifiee::onStatus>(status_, v); }
   // The interface over which the session runs: that of the peer, or, if the peer has none, the
   // interface that the service resolved. Empty if neither exists.
   Lnet::IntfId intf() const { return intf_; }
   void intfIs(Lnet::IntfId v) { attrIs<&Notifiee::onIntf>(intf_, v); }

 private:
   ~BfdPeerStatus() override = default;

   Peer const peer_;
   OperState status_ = OperState::adminDown;
   Lnet::IntfId intf_;
};

}  // namespace Bfd
