// One life for each moment at which a hook is called or a reactor is notified: at that moment the
// test interferes, for instance by destroying the reactor.
//
//    for (Interruption life; life.next();) {
//       ... build; life.act = [&] { sm = nullptr; }; life.follow(chip); ... play ...
//    }
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Qor/Type.h"

namespace testSupport {

class Interruption {
 public:
   // Begins the next life; false once the last one has had no moment left to interrupt.
   bool next() {
      followings_.clear();
      act = nullptr;
      bool const more = at_ < 0 || moments_ > at_;
      ++at_;
      moments_ = 0;
      return more;
   }
   int lives() const { return at_; }

   std::function<void()> act;

   // For hooks.
   void moment() {
      if (moments_++ == at_ && act) act();
   }
   // Every change of these objects is a moment.
   template <class... Objects>
   void follow(Objects const&... objects) {
      (followings_.push_back(std::make_unique<Qor::Following>(Qor::toGeneric(objects),
                                                              [this](Qor::Change const& change) {
                                                                 if (!change.gone) moment();
                                                              })),
       ...);
   }

 private:
   int at_ = -1;
   int moments_ = 0;
   std::vector<std::unique_ptr<Qor::Following>> followings_;
};

}  // namespace testSupport
