// The order of the zombies of both paths: by the time at which a zombie may be purged, then by the
// number of its group, so that the first key expires first. The key types of the two paths derive
// from ZombieOrder; each has its own name for the number (groupName) and for the type in the string
// form (typeName).
#pragma once

#include <bit>
#include <ostream>

#include "Qor/Hash.h"
#include "Qor/Strep.h"

namespace Vel {

// `Key` has `typeName` and `groupName`, and is constructible from (number, expiry).
template <class Key>
class ZombieOrder {
 public:
   // The time of the expiry, in seconds on the Qor::now() time base; `never` for the default key.
   Qor::Seconds expiryTime() const { return expiryTime_; }
   // Whether the key names a zombie: its expiry is finite.
   bool isZombie() const { return expiryTime_ <= Qor::maxFinite; }

   Qor::U32 hash() const {
      // Adding 0.0 turns -0.0 into 0.0: the two compare equal, so their hashes must be equal.
      return Qor::hashFold(Qor::hashMix(std::bit_cast<Qor::U64>(expiryTime_ + 0.0), number_));
   }

   friend bool operator==(Key const& a, Key const& b) {
      return a.number_ == b.number_ && a.expiryTime_ == b.expiryTime_;
   }
   friend bool operator<=(Key const& a, Key const& b) {
      if (a.expiryTime_ > b.expiryTime_) return false;
      if (a.expiryTime_ < b.expiryTime_) return true;
      return a.number_ <= b.number_;
   }
   friend bool operator>=(Key const& a, Key const& b) { return b <= a; }
   friend bool operator<(Key const& a, Key const& b) { return !(b <= a); }
   friend bool operator>(Key const& a, Key const& b) { return !(a <= b); }

   // "Value('<typeName>', ** {'<groupName>': %s, 'expiryTime': %s})"
   Qor::String strep() const {
      return opening() + Qor::valueToStrep(number_) +
             ", 'expiryTime': " + Qor::valueToStrep(expiryTime_) + "})";
   }
   static Key fromStrep(Qor::StrepReader& reader) {
      reader.expect(opening());
      Qor::U32 const number = reader.u32();
      reader.expect(", 'expiryTime': ");
      Qor::Seconds const expiryTime = reader.real();
      reader.expect("})");
      return {number, expiryTime};
   }
   friend std::ostream& operator<<(std::ostream& os, Key const& key) { return os << key.strep(); }

 protected:
   // The key that means "not a zombie": number 0, expiry never.
   ZombieOrder() = default;
   ZombieOrder(Qor::U32 number, Qor::Seconds expiryTime)
         : expiryTime_(expiryTime), number_(number) {}

   // The members are copied one by one: a copy of both at once would wait until the stores of a key
   // that has just been made have left the processor.
   ZombieOrder(ZombieOrder const& other) : expiryTime_(other.expiryTime_), number_(other.number_) {}
   ZombieOrder& operator=(ZombieOrder const& other) {
      expiryTime_ = other.expiryTime_;
      number_ = other.number_;
      return *this;
   }

   Qor::U32 number() const { return number_; }

 private:
   static Qor::String opening() {
      return Qor::String("Value('") + Key::typeName + "', ** {'" + Key::groupName + "': ";
   }

   Qor::Seconds expiryTime_ = Qor::never;
   Qor::U32 number_ = 0;
};

}  // namespace Vel
