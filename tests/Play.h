// A play: random operations on two switches of one process, on the system and on a literal model of
// it. Both sides print their traces, calls of hooks and notifications in one order, the last two with
// the sizes of all tables at that moment. In the middle of an operation, a hook or a listener may do
// another operation. The lines of both sides must be equal, and so must all tables after each
// operation.
//
// The classes of the model have those operations of the library's classes that a play calls.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>

#include "IntfVlanId/Table.h"
#include "Journal.h"
#include "MrouteLib/SwitchChip.h"
#include "Qor/Type.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "TestSupport.h"

namespace play {

using namespace testSupport;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Lnet::IntfId;
using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;
using Qor::Ptr;
using Qor::Seconds;
using Qor::U32;
using Qor::U64;
using Qor::valueToStrep;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
namespace Hardware = Routing::Multicast::Fib::Hardware;

// The operations of both paths; each path has some more, from `ofThePath` on.
enum Action : unsigned {
   allocate,
   release,
   allocateRoute,
   point,
   deleteRoute,
   dirty,
   resurrect,
   markDeleted,
   advance,
   fireZombies,
   fail,
   rewrite,
   disarm,
   review,
   report,
   withdraw,
   setInterval,
   endReactor,
   endSwitch,
   begin,
   ofThePath
};
// An operation with its arguments, which count modulo the number of such things.
struct Op {
   unsigned action = allocate, chip = 0, thing = 0, other = 0;
};
using Plan = std::map<unsigned, Op>;  // by the number of the moment

inline constexpr unsigned chips = 2, slots = 6;
inline constexpr char const* chipNames[chips] = {"A", "B"};

// Both switches get the same oif set objects. Each has another backup, by which the model knows it.
inline std::vector<OifSetPtr> const& oifSets() {
   static auto const* const sets = [] {
      struct {
         char const *out, *iif, *backup;
         bool toCpu;
         RouteKeyType type;
      } const rows[] = {{"et3", "et8", "et4", false, RouteKeyType::routed},
                        {"et6", "et8", "et1", false, RouteKeyType::bridged},
                        {"et1", "", "", false, RouteKeyType::routed},
                        {"et4", "et8", "et5", true, RouteKeyType::routed},
                        {"et7", "", "", false, RouteKeyType::bridged},
                        {"et2", "", "", true, RouteKeyType::routed},
                        {"et5", "et8", "", false, RouteKeyType::routed},
                        {"et6", "et7", "et2", false, RouteKeyType::routed},
                        {"et8", "et7", "et6", false, RouteKeyType::softwareOnly},
                        {"", "", "", true, RouteKeyType::routed},
                        {"", "", "", false, RouteKeyType::routed}};
      auto* const made = new std::vector<OifSetPtr>;
      for (auto const& row : rows) {
         PortVlanSet set(row.type);
         if (*row.out) set.newPortVlan(pv(row.out), true);
         if (*row.backup) {
            set.newPortVlanFrr(pv(row.backup, 5), true);
            set.newPortVlanFrr(pv("rtr9", 5), false);
         }
         set.currentIifIs(IntfId(row.iif));
         set.toCpuIs(row.toCpu);
         made->push_back(Qor::make<MrouteLib::OifSet>(nullptr, set));
      }
      return made;
   }();
   return *sets;
}
inline OifSetPtr const& oifSet(unsigned n) {
   return oifSets()[n % oifSets().size()];
}
// Mostly the set with the number of the thing, so that operations on that thing meet.
inline OifSetPtr const& setOf(Op const& op) {
   return oifSet(op.other % 4 ? op.thing : op.other);
}
// The last two are the catch-all routes of both families.
inline IpGenRouteKey routeKey(unsigned n) {
   static IpGenRouteKey const keys[] = {key(1), key(2), key("0.0.0.0/0", "239.0.0.0/8"),
                                        key("0.0.0.0/0", "224.0.0.0/4"), key("::/0", "ff00::/8")};
   return keys[n % std::size(keys)];
}
inline VrfName vrfName(unsigned n) {
   static constexpr char const* names[] = {"blue", "default", "red"};
   return VrfName(names[n % std::size(names)]);
}
inline VlanIdOrNone vlan(unsigned n) {
   return VlanIdOrNone(n % 3 ? 1000 + n % 3 : 0);
}
// The interface of that vlan, null, or an interface without a vlan.
inline IntfId intfOf(unsigned n) {
   return IntfId(n % 4 == 3 ? "lo1" : n % 4 ? cat("rtr", n % 4) : "");
}
// Allocates the lowest number that is not in use.
inline U32 lowest(std::set<U32>& used, U32 from, unsigned room) {
   if (used.size() >= room) return 0xFFFFFFFF;
   while (!used.insert(from).second)
      ++from;
   return from;
}

class Side {
 public:
   virtual ~Side() = default;

   void play(Op const& op, Plan const& plan) {
      plan_ = plan;
      moment_ = 0;
      run(op);
   }
   virtual Lines take() = 0;
   // The contents of all tables.
   virtual Lines tables() = 0;
   virtual Seconds now() const = 0;
   virtual void write(std::string line) = 0;

   template <class... Parts>
   void print(Parts const&... parts) {
      write(cat(parts...));
   }
   // A call of a hook or a notification of a listener, which does the operation planned for it.
   template <class... Parts>
   void event(Parts const&... parts) {
      write(cat(parts..., " | ", sizes()));
      auto const planned = plan_.find(moment_++);
      if (planned == plan_.end() || depth_ == 2) return;
      ++depth_;
      run(planned->second);
      --depth_;
   }
   template <class... Parts>
   void hook(unsigned chip, char const* name, Parts const&... parts) {
      event("hook ", chipNames[chip], ' ', name, cat(' ', parts)...);
   }

 protected:
   virtual void run(Op const& op) = 0;
   virtual std::string sizes() const = 0;
   bool nested() const { return depth_ != 0; }

 private:
   Plan plan_;
   unsigned moment_ = 0, depth_ = 0;
};

// The common base of both sides, which have classes of their own.
template <class Switch, class Record, class Reactor>
class World : public Side {
 public:
   World() {
      for (unsigned c = 0; c < chips; ++c) {
         zombieClock_[c] = Qor::make<Qor::Clock>();
         agingClock_[c] = Qor::make<Qor::Clock>();
      }
      for (unsigned n : {1, 2})
         vlans_->intfIdToVlanIdIs(intfOf(n), Bridging::VlanId(vlan(n).value()));
      follow(hw_.get(), "hw");
   }
   Lines tables() override {
      Lines lines;
      for (unsigned c = 0; c < chips; ++c) {
         lines.push_back(cat(chipNames[c], ": ", zombieClock_[c]->timeMin(), ' ',
                             agingClock_[c]->timeMin(), ' ',
                             sm_[c] && sm_[c]->clock() ? sm_[c]->clock()->timeMin() : -1));
         if (!switch_[c]) continue;
         Switch const& sw = *switch_[c];
         auto const named = [&](auto const& set, auto const& name) {
            auto const record = sw.record(set, name);
            return record ? cat(*record) : "dead";
         };
         list(lines, "inUse", sw.inUseOifSet(), named);
         list(lines, "frr", sw.frrMtableOifSet(), named);
         list(lines, "processing", sw.frrProcessingOifSet(), named);
         list(lines, "zombie", sw.zombieOifSet(), [](auto&, auto const& r) { return cat(*r); });
         for (OifSetPtr const& set : oifSets()) {
            for (auto const& r : sw.records(set))
               lines.push_back(cat(*r, ' ', r->toCpu(), r->deleted(), r->dirty(), ' ', r->zombie(),
                                   r == sw.inUseRecord(set), r->mrouteSwitch() == &sw,
                                   r->oifSet() == set, ' ', recordText(*r)));
         }
         lines.push_back(cat(sw.routeHandle(), ' ', sw.deleted(), ' ', !sw.mtableOifSet()));
         tablesOf(sw, lines);
      }
      return lines;
   }

   // Prints the changes of an object, with the value of a changed attribute at that moment.
   template <class T>
   void follow(T* object, std::string name) {
      Qor::sweepZombieReactors();  // another object may have been at that address
      auto& following = following_[object];
      if (following && following->alive()) return;
      auto const generic = [object] { return Qor::toGeneric(Ptr<T const>(object)); };
      following = std::make_unique<Qor::Following>(
            generic(), [this, generic, name, type = Qor::typeOf(generic())](auto const& change) {
               if (change.gone) return;
               std::string text = cat(name, ' ', change.member);
               if (change.key) text += " of " + change.key->pretty();
               for (auto const* const attribute : type->allAttributes()) {
                  if (attribute->name == change.member)
                     text += ' ' + attribute->read(generic()).text();
               }
               seen(change, name == chipNames[0] ? 0 : 1);
               event(text);
            });
   }
   void unfollow(void const* object) { following_.erase(object); }

   std::array<Ptr<Qor::Clock>, chips> zombieClock_, agingClock_;
   std::array<Ptr<Switch>, chips> switch_;
   std::array<Ptr<Reactor>, chips> sm_;
   std::array<std::array<Ptr<Record>, slots>, chips> record_;
   std::array<std::array<RouteHandle, slots>, chips> route_;
   Ptr<IntfVlanId::Table> const vlans_ = Qor::make<IntfVlanId::Table>();
   Ptr<Routing::Multicast::Fib::VrfConfig> const config_ =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Ptr<Hardware::Status> const hw_ = Qor::make<Hardware::Status>();

 protected:
   // The entries of a map, in an order that does not depend on it.
   template <class Map, class Show>
   static void list(Lines& lines, char const* name, Map const& map, Show const& show) {
      std::set<std::string> sorted;
      for (auto const& [key, value] : map)
         sorted.insert(cat("   ", name, ' ', key, ' ', show(key, value)));
      lines.insert(lines.end(), sorted.begin(), sorted.end());
   }
   virtual std::string recordText(Record const& record) const = 0;
   virtual void tablesOf(Switch const& sw, Lines& lines) const = 0;
   virtual std::string sizesOf(Switch const& sw) const = 0;
   virtual Ptr<Switch> newSwitch(unsigned chip) = 0;
   virtual Ptr<Reactor> newReactor(unsigned chip) = 0;
   virtual void runOfThePath(Op const& op) = 0;
   virtual void pass(Seconds time) = 0;
   virtual void seen(Qor::Change const&, unsigned /*chip*/) {}
   // First in the destructor.
   void releaseAll() {
      sm_ = {};
      switch_ = {};
      record_ = {};
   }
   std::string sizes() const override {
      std::string text;
      for (auto const& sw : switch_) {
         if (sw) {
            if (auto const result = Qor::ptrCast<Record>(sw->mtableOifSet()))
               text += cat(*result, ' ');
            text += cat(sw->inUseOifSet().size(), ' ', sw->zombieOifSet().size(), ' ',
                        sw->frrMtableOifSet().size(), ' ', sw->frrProcessingOifSet().size(), ' ',
                        sizesOf(*sw));
         }
         text += "; ";
      }
      return text;
   }

   void run(Op const& op) override {
      unsigned const c = op.chip % chips;
      Ptr<Switch> const sw = switch_[c];
      Ptr<Reactor> const sm = sm_[c];
      auto& record = record_[c][op.thing % slots];
      OifSetPtr const& set = setOf(op);
      VrfName const vrf = vrfName(op.chip / 2);
      IpGenRouteKey const key = routeKey(op.thing);
      if (op.action >= fireZombies && op.action <= review && (!sw || !sm)) return;
      switch (op.action) {
         case release:
            record = nullptr;
            break;
         case dirty:
            if (record) record->dirtyIs(true);
            break;
         case resurrect:
            if (!sw) break;
            if (auto const living = sw->records(set); !living.empty()) {
               record = Ptr<Record>(living.back());  // also while it is being freed
            } else if (!sw->zombieOifSet().empty()) {
               record = Ptr<Record>(sw->zombieOifSet().begin()->second);
            }
            break;
         case markDeleted:
            if (sw) sw->deletedIs(op.thing % 2);
            break;
         case advance:
            pass(op.thing % 4 ? op.other % 4 : op.other / 16.0);
            break;
         case fireZombies:
            sm->handleZombieClock();
            break;
         case fail:
            sm->updateFrrMtableOif(IntfId(op.thing % 2 ? "et8" : "et7"));
            break;
         case rewrite:
            if (auto const named = sw->record(set, sw->frrMtableOifSet(set))) {
               named->dirtyIs(true);
               sw->frrProcessingOifSetIs(set, named.get());
            }
            sm->handleClock();
            break;
         case disarm:
            if (op.chip < 10) {
               sw->frrMtableOifSetDel(set);
            } else {
               sw->inUseOifSetDel(set);
            }
            break;
         case review:
            sm->doRouteAgingReview();
            break;
         case report: {
            auto const r = hw_->vrfStatusIs(vrf)->routeIs(key);
            r->acceptingIntfIdIs(intfOf(op.thing));
            if (op.other % 2) r->fastdropLastPollTimeIs(intfOf(1 + op.other % 3).name(), 0);
            if (op.other % 4 == 2) r->fastdropLastPollTimeDelAll();
            follow(r.get(), cat(vrf, ' ', key));
            break;
         }
         case withdraw:
            if (op.other % 8) {
               hw_->vrfStatusIs(vrf)->routeDel(key);
            } else {
               hw_->vrfStatusDel(vrf);
            }
            break;
         case setInterval:
            config_->activityPollingIntervalIs(5 + op.thing);
            break;
         case endReactor:
            sm_[c] = nullptr;
            break;
         case endSwitch:
            sm_[c] = nullptr;
            switch_[c] = nullptr;
            break;
         case begin:
            if (nested() || sm) break;
            if (!sw) switch_[c] = newSwitch(c);
            sm_[c] = newReactor(c);
            break;
         default:
            runOfThePath(op);
      }
   }

 private:
   std::map<void const*, std::unique_ptr<Qor::Following>> following_;
};

// ---- The system: its traces are in the journal, and its listeners add their lines. ----

template <class World>
class SystemOf : public World {
 public:
   explicit SystemOf(char const* traceSource) : journal_(traceSource) {}
   Lines take() override { return journal_.take(); }
   Seconds now() const override { return Qor::now(); }
   void write(std::string line) override { journal_.add(std::move(line)); }

 protected:
   void pass(Seconds time) override { Qor::activityManager()->advance(time); }
   // A record is followed as soon as a listener can find it.
   void seen(Qor::Change const& change, unsigned chip) override {
      if (change.member != "inUseOifSet" || !change.key || !this->switch_[chip]) return;
      for (OifSetPtr const& set : oifSets()) {
         auto const record =
               change.key->object() == set ? this->switch_[chip]->inUseRecord(set) : nullptr;
         if (record) this->follow(record.get(), cat(chipNames[chip], ' ', *record));
      }
   }

 private:
   Journal journal_;
};

// Overrides a hook that prints its call and then returns the answer.
#define HOOK(Result, name, parameters, answer, ...) \
   Result name parameters override {                \
      hook(#name __VA_OPT__(, ) __VA_ARGS__);       \
      return answer;                                \
   }

// ---- The model, which plays second: it takes the system's order where the order is free. ----

template <class World>
class ModelOf : public World {
 public:
   Lines take() override { return std::exchange(lines_, {}); }
   Seconds now() const override { return now_; }
   void write(std::string line) override { lines_.push_back(std::move(line)); }
   // The lines of the system in this operation, which began at that time; null after it.
   void systemPrinted(Seconds begin, Lines const* lines) {
      now_ = begin;
      system_ = lines;
   }
   // The next line of the system.
   std::string nextLine() const {
      bool const printed = system_ && lines_.size() < system_->size();
      return printed ? (*system_)[lines_.size()] : std::string();
   }
   // The time that reroutes have taken of the budget that the failures of one turn share.
   Seconds takenInTurn_ = 0;

   // The entry that the system took next, by the line that it printed first for it.
   template <class Map, class FirstLine>
   std::optional<typename Map::value_type> next(Map const& map, FirstLine const& firstLine) const {
      for (auto const& entry : map) {
         if (nextLine().starts_with(firstLine(entry))) return entry;
      }
      return std::nullopt;
   }

 protected:
   void pass(Seconds time) override { now_ += time; }

 private:
   Seconds now_ = 0;
   Lines lines_;
   Lines const* system_ = nullptr;
};

// The part of a switch that its records know.
class ModelChip : public Qor::RefCounted {
 public:
   ModelChip(Side& s, unsigned n) : side(s), number(n) {}
   virtual void handleFree(Qor::RefCounted& record) = 0;

   Side& side;
   unsigned const number;
   U64 serials = 0;
   std::vector<Qor::RefCounted*> living;  // records, the newest first
};

// The setters notify of an equal value too if `notifiesEqual`.
template <class Record, class Key, bool notifiesEqual>
class ModelRecord : public Qor::RefCounted {
 public:
   ModelRecord(ModelChip& chip, OifSetPtr const& set, U32 i)
         : id(i), serial(++chip.serials), chip_(&chip), set_(set) {
      chip.living.insert(chip.living.begin(), this);
   }
   ~ModelRecord() override {
      if (chip_) std::erase(chip_->living, this);
   }
   OifSetPtr const& oifSet() const { return set_; }
   PortVlanSet const& members() const { return set_->portVlanSet(); }
   bool toCpu() const { return members().toCpu(); }
   ModelChip* mrouteSwitch() const { return chip_; }
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attribute("deleted", deleted_, v); }
   bool dirty() const { return dirty_; }
   void dirtyIs(bool v) { attribute("dirty", dirty_, v); }
   Key const& zombie() const { return zombie_; }
   bool isZombie() const { return zombie_.expiryTime() != Qor::never; }
   void zombieIs(Key v) { attribute("zombie", zombie_, v); }
   void outlivesItsSwitch() { chip_ = nullptr; }

   U32 const id;  // of the group
   U64 const serial;
   bool followed = false;

 protected:
   virtual void printCleanup() const = 0;
   template <class T>
   void attribute(char const* name, T& attribute, T v) {
      if (!notifiesEqual && attribute == v) return;
      attribute = v;
      if (followed)
         side_.event(chipName_, ' ', static_cast<Record&>(*this), ' ', name, ' ', valueToStrep(v));
   }
   template <class... Parts>
   void print(Parts const&... parts) const {
      side_.print(parts...);
   }

 private:
   // Once more if a listener removes the new zombie, so that the record has no user.
   void zeroReferencesIs(bool) override {
      do {
         printCleanup();
         if (chip_) chip_->handleFree(*this);
      } while (chip_ && !deleted() && references() == 1);
   }

   ModelChip* chip_;
   Side& side_ = chip_->side;
   char const* const chipName_ = chipNames[chip_->number];
   OifSetPtr const set_;
   bool deleted_ = false, dirty_ = false;
   Key zombie_;
};

// A switch of the model: the tables of both paths. A change notifies the reactor first and then the
// listener, which is not bound while a reactor is being made.
template <class W, class Record, class Key>
class ModelSwitch : public ModelChip {
 public:
   using RecordPtr = Ptr<Record>;
   using Names = std::map<OifSetPtr, U64>;  // the serials of records
   using Zombies = std::map<Key, RecordPtr>;

   ModelSwitch(W& w, unsigned n) : ModelChip(w, n), world(w) {}
   ~ModelSwitch() override {
      for (Qor::RefCounted* const r : living)
         static_cast<Record*>(r)->outlivesItsSwitch();
   }

   std::vector<RecordPtr> records(OifSetPtr const& set) const {
      std::vector<RecordPtr> all;
      for (Qor::RefCounted* const r : living) {
         if (static_cast<Record*>(r)->oifSet() == set) all.emplace_back(static_cast<Record*>(r));
      }
      return all;
   }
   RecordPtr record(OifSetPtr const& set, U64 serial) const {
      for (auto const& r : records(set)) {
         if (r->serial == serial) return r;
      }
      return nullptr;
   }
   RecordPtr inUseRecord(OifSetPtr const& set) const { return record(set, valueOf(inUse_, set)); }

   Names const& inUseOifSet() const { return inUse_; }
   void inUseOifSetIs(OifSetPtr set, Record* r) { is("inUseOifSet", inUse_, set, r->serial); }
   void inUseOifSetDel(OifSetPtr set) { del("inUseOifSet", inUse_, set); }
   Names const& frrMtableOifSet() const { return frr_; }
   U64 frrMtableOifSet(OifSetPtr const& set) const { return valueOf(frr_, set); }
   void frrMtableOifSetIs(OifSetPtr set, Record* r) { is("frrMtableOifSet", frr_, set, r->serial); }
   void frrMtableOifSetDel(OifSetPtr set) {
      ++disarmed[set];
      del("frrMtableOifSet", frr_, set);
   }
   Names const& frrProcessingOifSet() const { return processing_; }
   void frrProcessingOifSetIs(OifSetPtr set, Record* r) {
      is("frrProcessingOifSet", processing_, set, r->serial);
   }
   void frrProcessingOifSetDel(OifSetPtr set) { del("frrProcessingOifSet", processing_, set); }
   Zombies const& zombieOifSet() const { return zombies_; }
   void zombieOifSetIs(RecordPtr r) {
      Key const key = r->zombie();
      RecordPtr& entry = zombies_[key];
      if (entry == r) return;
      entry.swap(r);
      notify("zombieOifSet", key);
   }
   void zombieOifSetDel(Key key) {
      Ptr<ModelSwitch> const held(this);
      del("zombieOifSet", zombies_, key);
   }

   RouteHandle routeHandle() const { return routeHandle_; }
   RecordPtr mtableOifSet() const { return result_; }
   void mtableOifSetIs(RecordPtr v) {
      std::string const shown = v ? "MrouteLib::MtableOifSet" : "null";
      attribute("mtableOifSet", result_, std::move(v), shown);
   }
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attribute("deleted", deleted_, v); }

   W& world;
   // The reactor to a change of a collection, of all its entries if `key` is empty.
   std::function<void(std::string const& member, std::string const& key)> react;
   bool followed = true;
   std::map<OifSetPtr, unsigned> disarmed;  // how often each set has left frrMtableOifSet

 protected:
   // Whether the listener can find the switch, to follow its new objects.
   bool isSeen() const { return followed && world.switch_[number]; }
   void routeHandleIs(RouteHandle v) { attribute("routeHandle", routeHandle_, v); }
   template <class... Parts>
   void print(Parts const&... parts) const {
      side.print(parts...);
   }
   template <class... Parts>
   void hook(char const* name, Parts const&... parts) const {
      side.hook(number, name, parts...);
   }
   template <class Map>
   static typename Map::mapped_type valueOf(Map const& map, typename Map::key_type const& key) {
      auto const entry = map.find(key);
      return entry == map.end() ? typename Map::mapped_type() : entry->second;
   }
   template <class K>
   void notify(std::string const& member, K const& key) {
      if (react) react(member, cat(key));
      if (!followed) return;
      if constexpr (std::is_same_v<K, OifSetPtr>) {
         RecordPtr const record = member == "inUseOifSet" ? inUseRecord(key) : nullptr;
         if (record && isSeen()) record->followed = true;
      }
      side.event(chipNames[number], ' ', member, " of ", key);
   }
   template <class T>
   void attribute(char const* name, T& attribute, T v, std::string const& shown) {
      if (attribute == v) return;
      std::swap(attribute, v);
      if (followed) side.event(chipNames[number], ' ', name, ' ', shown);
   }
   template <class T>
   void attribute(char const* name, T& value, T v) {
      attribute(name, value, v, valueToStrep(v));
   }
   template <class Map>
   void is(char const* name, Map& map, typename Map::key_type key,
           typename Map::mapped_type value) {
      auto const [entry, made] = map.try_emplace(key, value);
      if (!made && entry->second == value) return;
      entry->second = value;
      notify(name, key);
   }
   template <class Map>
   void del(char const* name, Map& map, typename Map::key_type key) {
      auto const gone = map.extract(key);
      if (gone) notify(name, key);
   }
   // Releases the entries in the order of the keys.
   template <class Map>
   void delAll(char const* name, Map& map) {
      Map gone = std::exchange(map, {});
      if (gone.empty()) return;
      if (react) react(name, "");
      if (followed) side.event(chipNames[number], ' ', name);
      while (!gone.empty())
         gone.erase(gone.begin());
   }

   // At the end of the switch, after its result.
   void recordsDelAll() {
      delAll("zombieOifSet", zombies_);
      delAll("inUseOifSet", inUse_);
      delAll("frrMtableOifSet", frr_);
      delAll("frrProcessingOifSet", processing_);
   }

   Names inUse_, frr_, processing_;
   Zombies zombies_;

 private:
   RecordPtr result_;
   RouteHandle routeHandle_;
   bool deleted_ = false;
};

// A reactor of the model: the common part of both paths.
template <class W, class Chip>
class ModelReactor : public Qor::RefCounted {
 public:
   ModelReactor(W& w, Chip& c) : world_(w), chip_(&c) {}
   Ptr<Qor::Clock> const& clock() const { return clock_; }

 protected:
   class OnInterval final : public Routing::Multicast::Fib::VrfConfig::Notifiee {
    public:
      void onActivityPollingInterval() override { call(); }
      std::function<void()> call;
   };
   template <class... Parts>
   void print(Parts const&... parts) const {
      world_.print(parts...);
   }
   template <class... Parts>
   void hook(char const* name, Parts const&... parts) const {
      world_.hook(chip_->number, name, parts...);
   }
   Qor::Clock const& zombieClock() const { return *world_.zombieClock_[chip_->number]; }
   Qor::Clock const& agingClock() const { return *world_.agingClock_[chip_->number]; }
   bool armed() const { return agingClock().timeMin() <= Qor::maxFinite; }
   void disarm() const {
      zombieClock().timeMinIs(Qor::never);
      agingClock().timeMinIs(Qor::never);
   }
   VlanIdOrNone vlanOf(IntfId intf) const { return world_.vlans_->intfIdToVlanId(intf); }
   double interval() const { return world_.config_->activityPollingInterval(); }
   // Arms the clock for the next turn while sets wait to be rewritten.
   void setClock() {
      bool const waiting = !chip_->frrProcessingOifSet().empty();
      if (waiting && !clock_) clock_ = Qor::make<Qor::Clock>();
      if (clock_) clock_->timeMinIs(waiting ? world_.now() : Qor::never);
   }
   // The time of a reroute that a failure starts.
   struct RerouteTime {
      explicit RerouteTime(W& w) : world(w) {}
      ~RerouteTime() { world.takenInTurn_ += world.now() - begun; }

      W& world;
      Seconds const begun = world.now();
      Seconds const deadline = begun + (0.1 - world.takenInTurn_);
   };
   // Looks once at each set that is in frrMtableOifSet from the start to its turn.
   template <class FirstLine, class Look>
   void lookAtArmed(FirstLine const& firstLine, Look const& look) {
      auto const& armed = chip_->frrMtableOifSet();
      auto left = armed;
      auto const before = chip_->disarmed;
      while (auto const entry = world_.next(armed, firstLine)) {
         left.erase(entry->first);
         look(entry->first, entry->second);
      }
      for (auto const& [set, serial] : left) {
         bool const stayed = before.contains(set) ? before.at(set) == chip_->disarmed[set]
                                                  : !chip_->disarmed.contains(set);
         if (armed.contains(set) && stayed) print("passed over ", set);
      }
   }
   template <class FirstLine, class Rewrite>
   void rewriteWaiting(Seconds deadline, FirstLine const& firstLine, Rewrite const& rewrite) {
      auto const& waiting = chip_->frrProcessingOifSet();
      while (!waiting.empty() && world_.now() < deadline) {
         auto const entry = world_.next(waiting, firstLine);
         if (!entry) return print("nothing rewritten");
         rewrite(entry->first, entry->second);
         chip_->frrProcessingOifSetDel(entry->first);
      }
   }

   W& world_;
   Ptr<Chip> const chip_;
   OnInterval onInterval_;
   bool initialized_ = false;

 private:
   Ptr<Qor::Clock> clock_;
};

// The set with its backup members instead of its members.
inline PortVlanSet backupOf(OifSetPtr const& set) {
   PortVlanSet replaced = set->portVlanSet();
   replaced.portVlanDelAll();
   for (auto const& [member, flag] : set->portVlanSet().portVlanFrr())
      replaced.newPortVlan(member, flag);
   return replaced;
}
inline bool reroutedOn(OifSetPtr const& set, IntfId failed) {
   return set->portVlanSet().currentIif() == failed && !set->portVlanSet().portVlanFrr().empty();
}

// Shows the first difference with the lines around it.
inline void expectSame(Lines const& system, Lines const& model) {
   auto const at = std::ranges::mismatch(system, model).in1 - system.begin();
   auto const around = [&](Lines const& lines) {
      std::string text;
      for (auto n = std::max<long>(at - 12, 0); n < at + 3 && n < std::ssize(lines); ++n)
         text += '\n' + lines[static_cast<std::size_t>(n)];
      return text;
   };
   EXPECT_TRUE(system == model) << "system:" << around(system) << "\nmodel:" << around(model);
}

// Plays both sides step by step, until they differ. --gtest_random_seed=<n> chooses other seeds.
template <class System, class Model>
void compare(unsigned seeds, unsigned steps, unsigned actions) {
   unsigned const first = seeds * static_cast<unsigned>(GTEST_FLAG_GET(random_seed));
   for (unsigned seed = first + 1; seed <= first + seeds; ++seed) {
      {
         Qor::activityManager()->runDue();  // the operations of a seed are one turn
         System system;
         Model model;
         std::mt19937 random(seed);
         auto const pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
         static constexpr unsigned frequent[] = {allocate,    release, allocateRoute, point,
                                                 deleteRoute, fail,    fireZombies};
         // Low numbers are frequent, so that operations meet at the same things.
         auto const draw = [&] {
            unsigned const action = pick(8) == 0 ? unsigned{begin}
                                    : pick(2)    ? frequent[pick(std::size(frequent))]
                                                 : pick(actions);
            return Op{action, pick(2) ? pick(2) : pick(12), pick(2) ? pick(3) : pick(12),
                      pick(2) ? pick(3) : pick(16)};
         };
         for (unsigned step = 0; step < steps; ++step) {
            Op const op = draw();
            SCOPED_TRACE(cat("seed ", seed, ", step ", step, ", operation ", op.action));
            Plan plan;
            for (unsigned n = pick(5); n > 0; --n) {
               Op& nested = plan[pick(2) ? pick(4) : pick(16)] = draw();
               unsigned const kind = pick(5);
               if (kind == 0) nested.action = pick(2) ? allocate : release;
               if (kind == 1) nested.action = pick(2) ? report : withdraw;
               if (kind == 2) nested.action = pick(4) ? advance : endReactor;
               if (pick(2)) nested.chip = op.chip, nested.thing = op.thing;
            }
            Seconds const begin = Qor::now();
            system.play(op, plan);
            Lines const lines = system.take();
            model.systemPrinted(begin, &lines);
            model.play(op, plan);
            model.systemPrinted(Qor::now(), nullptr);  // no lines to follow at its end
            expectSame(lines, model.take());
            if (!testing::Test::HasFailure()) expectSame(system.tables(), model.tables());
            if (testing::Test::HasFailure()) return;
         }
      }
      for (OifSetPtr const& set : oifSets())
         EXPECT_EQ(set->references(), 1u) << "after seed " << seed;
   }
}

}  // namespace play
