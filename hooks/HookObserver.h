// Notified of the changes that calls of the hooks make to the tables of a chip. Checked hooks notify
// the observer of each change that they enter into their shadow (hooks/Shadow.h).
//
// The notifications come from inside a hook call, and perhaps from inside a destructor: an observer
// must not throw and calls no hook.
#pragma once

#include <optional>

#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "hooks/HookFault.h"

namespace VelMroute {

struct HookWrite {
   enum class Action : unsigned char {
      makeSet,
      writeSet,  // the members of a live set
      shareSet,  // another empty set gets the index of a live empty one
      deleteSet,
      makeEntry,
      pointEntry,
      deleteEntry,
   };

   HookCall const& call;
   Action action;
   Qor::U32 number;  // the index of the set, or the value of the handle
   // Of an entry: its VRF and key, and the index of its set, if it points at one.
   Qor::U32 vrfId = 0;
   Routing::Multicast::Fib::IpGenRouteKey const* key = nullptr;
   std::optional<Qor::U32> set = {};
   std::optional<Qor::U32> before = {};  // of pointEntry: the set at which the entry pointed
};

class HookObserver : public Qor::RefCounted {
 public:
   virtual void wrote(HookWrite const& write) = 0;
   // The latest write of the call with this number is not on the chip yet.
   virtual void pending(Qor::U64 call) = 0;
   // A pending write reached the chip, or failed.
   virtual void completed(Qor::U64 call, bool succeeded) = 0;

 protected:
   ~HookObserver() override = default;
};

}  // namespace VelMroute
