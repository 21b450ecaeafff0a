#include "kernel/RouteAsks.h"

#include <utility>

#include "kernel/Request.h"

namespace Kernel {

using Qor::U32;
using Qor::U64;

void RouteAsks::add(RouteKey const& key, bool lacking, RouteAnswered answered) {
   auto const [place, made] = waitingByKey_.insert(key, next_);
   if (made) waiting_[next_++].key = key;
   Ask& ask = waiting_[place->second];
   if (lacking && !std::exchange(ask.lacking, true)) ++lacking_;
   if (answered) ask.answered.push_back(std::move(answered));
}

bool RouteAsks::send(Socket& socket, U32& sequence) {
   if (waiting_.empty() || sent_.size() >= mostSent) return true;
   Requests requests;
   while (!waiting_.empty() && sent_.size() < mostSent) {
      auto first = waiting_.extract(waiting_.begin());
      waitingByKey_.take(first.mapped().key);
      requests.getRoute(++sequence, first.mapped().key);
      sent_.emplace(sequence, std::move(first.mapped()));
   }
   if (socket.send(requests.bytes())) return true;
   lost();
   return false;
}

std::optional<RouteAsks::Ask> RouteAsks::take(U32 sequence) {
   auto const found = sent_.extract(sequence);
   if (!found) return std::nullopt;
   if (found.mapped().lacking) --lacking_;
   return std::move(found.mapped());
}

void RouteAsks::lost() {
   for (auto& [sequence, ask] : std::exchange(sent_, {})) {
      if (ask.lacking) --lacking_;
      add(ask.key, ask.lacking, {});
      auto& answered = waiting_[waitingByKey_.find(ask.key)->second].answered;
      std::move(ask.answered.begin(), ask.answered.end(), std::back_inserter(answered));
   }
}

std::vector<RouteAsks::Ask> RouteAsks::takeAll() {
   lost();
   std::vector<Ask> all;
   for (auto& [number, ask] : waiting_)
      all.push_back(std::move(ask));
   waiting_.clear();
   waitingByKey_.clear();
   lacking_ = 0;
   return all;
}

}  // namespace Kernel
