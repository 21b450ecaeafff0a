#include "platform/openflow/Readings.h"

#include <algorithm>
#include <utility>

namespace OpenFlow {

void Readings::answer(U32 xid, Bytes body) {
   auto const at = pending_.find(xid);
   if (at == pending_.end()) return;
   Reading& reading = at->second;
   MultipartReply const reply = multipartReplyOf(body);
   if (reply.type != reading.type)
      throw Malformed("an answer is of another type than its question");
   // An empty part counts as well, so that an endless answer of empty parts ends.
   reading.bytes += headerSize + body.size();
   if (reading.bytes > mostBytes) throw Malformed("an answer has no end");
   reading.part(reply.body);
   if (reply.more) return;
   auto const ended = pending_.extract(at);
   ended.mapped().done(true);
}

bool Readings::error(U32 xid) {
   auto const ended = pending_.extract(xid);
   if (ended.empty()) return false;
   ended.mapped().done(false);
   return true;
}

void Readings::dropAll() {
   for (auto const& [xid, reading] : std::exchange(pending_, {}))
      reading.done(false);
}

Qor::Seconds Readings::waiting() const {
   Qor::Seconds longest = 0;
   for (auto const& [xid, reading] : pending_)
      longest = std::max(longest, Qor::now() - reading.asked);
   return longest;
}

}  // namespace OpenFlow
