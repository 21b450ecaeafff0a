// The questions to the bridge that it answers in several messages.
#pragma once

#include <functional>
#include <map>

#include "Qor/Clock.h"
#include "platform/openflow/Message.h"

namespace OpenFlow {

class Readings {
 public:
   using Part = std::function<void(Bytes)>;
   using Done = std::function<void(bool)>;

   // An answer of more bytes is malformed.
   static constexpr std::size_t mostBytes = 32 << 20;

   // `part` is called for each message of the answer, and `done` at its end, or with false if the
   // bridge reports an error or the connection ends.
   void add(U32 xid, Multipart type, Part part, Done done) {
      pending_[xid] = {type, 0, Qor::now(), std::move(part), std::move(done)};
   }
   // Throws Malformed. An answer to no question is skipped.
   void answer(U32 xid, Bytes body);
   // Returns whether the xid is that of a question.
   bool error(U32 xid);
   void dropAll();
   // The time for which the oldest question has waited; 0 if there is none.
   Qor::Seconds waiting() const;

 private:
   struct Reading {
      Multipart type{};
      std::size_t bytes = 0;
      Qor::Seconds asked = 0;
      Part part;
      Done done;
   };
   std::map<U32, Reading> pending_;
};

}  // namespace OpenFlow
