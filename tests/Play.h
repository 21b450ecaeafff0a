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
template <class S, class Rec, class Sm, class P>
class World : public Side {
 public:
   using Switch = S;
   using Record = Rec;
   using Reactor = Sm;
   using Platform = P;

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
   std::array<Platform, chips> platform_;
   std::array<Ptr<Switch>, chips> switch_;
   std::array<Ptr<Reactor>, chips> sm_;
   std::array<std::array<Ptr<Record>, slots>, chips> record_;
   std::array<std::array<RouteHandle, slots>, chips> route_;
   Ptr<IntfVlanId::Table> const vlans_ = Qor::make<IntfVlanId::Table>();
   Ptr<Routing::Multicast::Fib::VrfConfig> const config_ =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Ptr<Hardware::Status> const hw_ = Qor::make<Hardware::Status>();

 protected:
   // The things that an operation is about.
   struct Things {
      Ptr<Switch> const sw;
      Ptr<Reactor> const sm;
      Ptr<Record>& record;
      RouteHandle& route;
      Platform& platform;
      OifSetPtr const& set;
      VrfName const vrf;
   };
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
   virtual Ptr<Reactor> beginReactor(unsigned chip) { return newReactor(chip); }
   virtual void runOfThePath(Op const& op, Things const& things) = 0;
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
      Things const things{
            switch_[c],   sm_[c],    record_[c][op.thing % slots], route_[c][op.other % slots],
            platform_[c], setOf(op), vrfName(op.chip / 2)};
      auto const& [sw, sm, record, route, platform, set, vrf] = things;
      IpGenRouteKey const key = routeKey(op.thing);
      auto const is = [&](Action action) { return op.action == action; };
      bool const runs = sw && sm;
      if (is(release)) record = nullptr;
      if (is(dirty) && record) record->dirtyIs(true);
      if (is(resurrect) && sw) {
         if (auto const living = sw->records(set); !living.empty()) {
            record = Ptr<Record>(living.back());  // also while it is being freed
         } else if (!sw->zombieOifSet().empty()) {
            record = Ptr<Record>(sw->zombieOifSet().begin()->second);
         }
      }
      if (is(markDeleted) && sw) sw->deletedIs(op.thing % 2);
      if (is(advance)) pass(op.thing % 4 ? op.other % 4 : op.other / 16.0);
      if (is(fireZombies) && runs) sm->handleZombieClock();
      if (is(fail) && runs) sm->updateFrrMtableOif(IntfId(op.thing % 2 ? "et8" : "et7"));
      if (is(rewrite) && runs) {
         if (auto const named = sw->record(set, sw->frrMtableOifSet(set))) {
            named->dirtyIs(true);
            sw->frrProcessingOifSetIs(set, named.get());
         }
         sm->handleClock();
      }
      if (is(disarm) && runs && op.chip < 10) sw->frrMtableOifSetDel(set);
      if (is(disarm) && runs && op.chip >= 10) sw->inUseOifSetDel(set);
      if (is(review) && runs) sm->doRouteAgingReview();
      if (is(report)) {
         auto const r = hw_->vrfStatusIs(vrf)->routeIs(key);
         r->acceptingIntfIdIs(intfOf(op.thing));
         if (op.other % 2) r->fastdropLastPollTimeIs(intfOf(1 + op.other % 3).name(), 0);
         if (op.other % 4 == 2) r->fastdropLastPollTimeDelAll();
         follow(r.get(), cat(vrf, ' ', key));
      }
      if (is(withdraw) && op.other % 8) hw_->vrfStatusIs(vrf)->routeDel(key);
      if (is(withdraw) && op.other % 8 == 0) hw_->vrfStatusDel(vrf);
      if (is(setInterval)) config_->activityPollingIntervalIs(5 + op.thing);
      if (is(endReactor) || is(endSwitch)) sm_[c] = nullptr;
      if (is(endSwitch)) switch_[c] = nullptr;
      if (is(begin) && !nested() && !sm) {
         if (!sw) platform = {};
         if (!sw) switch_[c] = newSwitch(c);
         sm_[c] = beginReactor(c);
      }
      runOfThePath(op, things);
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
   // The hooks of a chip, which print their calls.
   template <class Helper>
   class HooksOf : public Helper {
    public:
      template <class... Names>
      HooksOf(SystemOf& s, unsigned chip, Names... more)
            : Helper(chipNames[chip], more...), system(s), platform(s.platform_[chip]), me(chip) {}
      template <class... Parts>
      void hook(Parts const&... parts) {
         system.hook(me, parts...);
      }

      SystemOf& system;
      typename World::Platform& platform;
      unsigned const me;
   };

   void pass(Seconds time) override { Qor::activityManager()->advance(time); }
   // The reactor is notified before the listener.
   Ptr<typename World::Reactor> newReactor(unsigned c) override {
      this->unfollow(this->switch_[c].get());
      auto const made = makeReactor(c);
      if (this->switch_[c]) this->follow(this->switch_[c].get(), chipNames[c]);
      return made;
   }
   virtual Ptr<typename World::Reactor> makeReactor(unsigned chip) = 0;
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

 protected:
   void pass(Seconds time) override { now_ += time; }
   auto newSwitch(unsigned c) -> Ptr<typename World::Switch> override {
      using Model = typename World::Switch::Model;
      return Qor::make<typename World::Switch>(static_cast<Model&>(*this), c);
   }
   auto newReactor(unsigned c) -> Ptr<typename World::Reactor> override {
      auto const chip = this->switch_[c];
      chip->followed = false;
      auto const made = Qor::make<typename World::Reactor>(chip->world, *chip);
      made->initialize();
      chip->followed = this->switch_[c] != nullptr;
      return made;
   }

 private:
   Seconds now_ = 0;
   Lines lines_;
   Lines const* system_ = nullptr;
};

// An object of the model.
class Entity : public Qor::RefCounted {
 public:
   Entity(Side& s, std::string t, bool f) : side(s), title(std::move(t)), followed(f) {}

   Side& side;
   std::string const title;
   bool followed;  // by a listener

 protected:
   // Notifies of a change, or of an equal value too if `always`.
   template <class T, bool always = false>
   class Attribute {
    public:
      Attribute(Entity* owner, char const* name, T value = T())
            : owner_(*owner), name_(name), value_(std::move(value)) {}
      T const& operator()() const { return value_; }
      void is(T v) { is(v, valueToStrep(v)); }
      void is(T v, std::string const& shown) {
         if (!always && value_ == v) return;
         std::swap(value_, v);
         if (owner_.followed) owner_.side.event(owner_.title, ' ', name_, ' ', shown);
      }

    private:
      Entity& owner_;
      char const* const name_;
      T value_;
   };
   template <class... Parts>
   void print(Parts const&... parts) const {
      side.print(parts...);
   }
};

// The part of a switch that its records know.
class ModelChip : public Entity {
 public:
   ModelChip(Side& s, unsigned n) : Entity(s, chipNames[n], true), number(n) {}
   virtual void handleFree(Qor::RefCounted& record) = 0;

   unsigned const number;
   U64 serials = 0;
   std::vector<Qor::RefCounted*> living;  // records, the newest first
};

// `text` is the text of the record in traces, up to the number of its group.
template <class Key, bool notifiesEqual>
class ModelRecord : public Entity {
 public:
   ModelRecord(ModelChip& chip, OifSetPtr const& set, U32 i, char const* text)
         : Entity(chip.side, cat(chip.title, ' ', text, i, ", ", set, ')'), false),
           id(i),
           serial(++chip.serials),
           chip_(&chip),
           set_(set) {
      chip.living.insert(chip.living.begin(), this);
   }
   ~ModelRecord() override {
      if (chip_) std::erase(chip_->living, this);
   }
   OifSetPtr const& oifSet() const { return set_; }
   PortVlanSet const& members() const { return set_->portVlanSet(); }
   bool toCpu() const { return members().toCpu(); }
   ModelChip* mrouteSwitch() const { return chip_; }
   bool isZombie() const { return zombie().expiryTime() != Qor::never; }
   void dirtyIs(bool v) { dirty.is(v); }
   void outlivesItsSwitch() { chip_ = nullptr; }
   friend std::ostream& operator<<(std::ostream& out, ModelRecord const& r) {
      return out << r.title.substr(2);
   }

   template <class T>
   using RecordAttribute = Attribute<T, notifiesEqual>;
   U32 const id;  // of the group
   U64 const serial;
   RecordAttribute<bool> deleted{this, "deleted"}, dirty{this, "dirty"};
   RecordAttribute<Key> zombie{this, "zombie"};

 protected:
   virtual void printCleanup() const = 0;

 private:
   // Once more if a listener removes the new zombie, so that the record has no user.
   void zeroReferencesIs(bool) override {
      do {
         printCleanup();
         if (chip_) chip_->handleFree(*this);
      } while (chip_ && !deleted() && references() == 1);
   }

   ModelChip* chip_;
   OifSetPtr const set_;
};

// A switch of the model: the tables of both paths. A change notifies the reactor first and then the
// listener, which is not bound while a reactor is being made.
template <class W, class Record, class Key>
class ModelSwitch : public ModelChip {
 public:
   using Model = W;
   using RecordPtr = Ptr<Record>;

   ModelSwitch(W& w, unsigned n) : ModelChip(w, n), world(w) {}
   ~ModelSwitch() override {
      for (Qor::RefCounted* const r : living)
         static_cast<Record*>(r)->outlivesItsSwitch();
   }

   // A collection, of which () returns all entries, or the value of a key.
   template <class K, class V>
   class Table {
    public:
      Table(ModelSwitch* chip, char const* name) : chip_(*chip), name_(name) {}
      std::map<K, V> const& operator()() const { return map_; }
      V operator()(K const& key) const {
         auto const entry = map_.find(key);
         return entry == map_.end() ? V() : entry->second;
      }
      void is(K key, V value) {
         auto const [entry, made] = map_.try_emplace(key, value);
         if (!made && entry->second == value) return;
         std::swap(entry->second, value);
         chip_.notify(name_, key);
      }
      void del(K key) {
         auto const gone = map_.extract(key);
         if (gone) chip_.notify(name_, key);
      }
      // Releases the entries in the order of the keys.
      void delAll() {
         auto gone = std::exchange(map_, {});
         if (gone.empty()) return;
         if (chip_.react) chip_.react(name_, "");
         if (chip_.followed) chip_.side.event(chip_.title, ' ', name_);
         while (!gone.empty())
            gone.erase(gone.begin());
      }

    private:
      ModelSwitch& chip_;
      char const* const name_;
      std::map<K, V> map_;
   };
   using Names = Table<OifSetPtr, U64>;  // the serials of records

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
   RecordPtr inUseRecord(OifSetPtr const& set) const { return record(set, inUseOifSet(set)); }
   void inUseOifSetDel(OifSetPtr const& set) { inUseOifSet.del(set); }
   void frrMtableOifSetDel(OifSetPtr const& set) { frrMtableOifSet.del(set); }
   void frrProcessingOifSetIs(OifSetPtr const& set, Record* r) {
      frrProcessingOifSet.is(set, r->serial);
   }
   void zombieOifSetDel(Key key) {
      Ptr<ModelSwitch> const held(this);
      zombieOifSet.del(key);
   }
   void mtableOifSetIs(RecordPtr v) {
      std::string const shown = v ? "MrouteLib::MtableOifSet" : "null";
      mtableOifSet.is(std::move(v), shown);
   }
   void deletedIs(bool v) { deleted.is(v); }
   virtual void requestVerify() const = 0;

   W& world;
   // The reactor to a change of a collection, of all its entries if `key` is empty.
   std::function<void(std::string const& member, std::string const& key)> react;
   std::map<OifSetPtr, unsigned> disarmed;  // how often each set has left frrMtableOifSet
   Names inUseOifSet{this, "inUseOifSet"}, frrMtableOifSet{this, "frrMtableOifSet"},
         frrProcessingOifSet{this, "frrProcessingOifSet"};
   Table<Key, RecordPtr> zombieOifSet{this, "zombieOifSet"};
   Entity::Attribute<RecordPtr> mtableOifSet{this, "mtableOifSet"};
   Entity::Attribute<RouteHandle> routeHandle{this, "routeHandle"};
   Entity::Attribute<bool> deleted{this, "deleted"};

 protected:
   // Whether the listener can find the switch, to follow its new objects.
   bool isSeen() const { return followed && world.switch_[number]; }
   auto& platform() const { return world.platform_[number]; }
   template <class... Parts>
   void hook(char const* name, Parts const&... parts) const {
      side.hook(number, name, parts...);
   }
   virtual void printFree(Record const& r) const = 0;
   // Prints the reason if a record is freed without a time as a zombie; else returns false.
   virtual bool freesAtOnce(Record const& r) const = 0;
   virtual void freeNow(Record& r) = 0;
   // Prints that a record becomes a zombie, and returns its key.
   virtual Key newZombie(Record& r) const = 0;
   void handleFree(Qor::RefCounted& freed) override {
      Ptr<ModelSwitch> const held(this);
      auto& r = static_cast<Record&>(freed);
      printFree(r);
      if (r.deleted()) return;
      if (freesAtOnce(r)) {
         freeNow(r);
      } else {
         Key const key = newZombie(r);
         r.zombie.is(key);
         if (r.zombie() == key) zombieOifSet.is(key, &r);
      }
      requestVerify();
   }

   // At the end of the switch, after its result.
   void recordsDelAll() {
      zombieOifSet.delAll();
      inUseOifSet.delAll();
      frrMtableOifSet.delAll();
      frrProcessingOifSet.delAll();
   }

 private:
   template <class K>
   void notify(std::string const& member, K const& key) {
      if constexpr (std::is_same_v<K, OifSetPtr>) {
         if (member == "frrMtableOifSet" && !frrMtableOifSet().contains(key)) ++disarmed[key];
      }
      if (react) react(member, cat(key));
      if (!followed) return;
      if constexpr (std::is_same_v<K, OifSetPtr>) {
         RecordPtr const record = member == "inUseOifSet" ? inUseRecord(key) : nullptr;
         if (record && isSeen()) record->followed = true;
      }
      side.event(title, ' ', member, " of ", key);
   }
};

// The traces of a reactor's work on zombies, and its lines of the ring, which one path has.
struct ZombieTexts {
   struct OfRecord {
      char const *trace, *blip;
   };
   char const* clock;
   OfRecord removed;
   char const *unfinished, *review, *marked, *none;
   OfRecord first, atEnd;
};

// A reactor of the model: the common part of both paths.
template <class W, class Chip>
class ModelReactor : public Qor::RefCounted {
 public:
   ModelReactor(W& w, Chip& c) : world_(w), chip_(&c) {}
   Ptr<Qor::Clock> const& clock() const { return clock_; }

   void handleZombieClock() {
      Ptr<ModelReactor> const self(this);
      print(texts().clock);
      Seconds const deadline = world_.now() + 3;
      auto const& zombies = chip_->zombieOifSet();
      for (unsigned removed = 1; !zombies.empty(); ++removed) {
         auto const& [key, first] = *zombies.begin();
         if (first->zombie().expiryTime() > world_.now()) break;
         print(texts().removed, first->id);
         chip_->zombieOifSetDel(key);
         if (texts().unfinished && removed % 5 == 0 && world_.now() >= deadline) {
            print(texts().unfinished);
            break;
         }
      }
      if (chip_->deleted()) zombieClock().timeMinIs(Qor::never);
      handleZombie();
   }
   void handleClock() { rewriteWaitingFrom(world_.now()); }

 protected:
   class OnInterval final : public Routing::Multicast::Fib::VrfConfig::Notifiee {
    public:
      void onActivityPollingInterval() override { call(); }
      std::function<void()> call;
   };
   virtual ZombieTexts const& texts() const = 0;
   virtual void printCleanup() const = 0;
   // After the cleanup: the part of the path.
   virtual void end() {}
   // The time of an event counts towards the budget of the pass that it starts.
   virtual void rewriteWaitingFrom(Seconds begun) = 0;

   template <class... Parts>
   void print(Parts const&... parts) const {
      world_.print(parts...);
   }
   void print(ZombieTexts::OfRecord const& text, U32 id, std::string const& more = "") const {
      print(text.trace, id, more);
      if (text.blip) print("blip ", text.blip, id);
   }
   template <class... Parts>
   void hook(char const* name, Parts const&... parts) const {
      world_.hook(chip_->number, name, parts...);
   }
   auto& platform() const { return world_.platform_[chip_->number]; }
   Qor::Clock const& zombieClock() const { return *world_.zombieClock_[chip_->number]; }
   Qor::Clock const& agingClock() const { return *world_.agingClock_[chip_->number]; }
   bool armed() const { return agingClock().timeMin() <= Qor::maxFinite; }
   void disarm() const {
      zombieClock().timeMinIs(Qor::never);
      agingClock().timeMinIs(Qor::never);
   }
   VlanIdOrNone vlanOf(IntfId intf) const { return world_.vlans_->intfIdToVlanId(intf); }
   double interval() const { return world_.config_->activityPollingInterval(); }

   void handleZombie() {
      auto const& zombies = chip_->zombieOifSet();
      print(texts().review);
      if (!initialized_) return;
      if (chip_->deleted()) return print(texts().marked);
      if (zombies.empty()) {
         zombieClock().timeMinIs(Qor::never);
         print(texts().none);
      } else {
         auto const& first = *zombies.begin()->second;
         print(texts().first, first.id);
         zombieClock().timeMinIs(first.zombie().expiryTime());
      }
      if (texts().first.blip) chip_->requestVerify();
   }

   // Arms the clock for the next turn while sets wait to be rewritten.
   void setClock() {
      bool const waiting = !chip_->frrProcessingOifSet().empty();
      if (waiting && !clock_) clock_ = Qor::make<Qor::Clock>();
      if (clock_) clock_->timeMinIs(waiting ? world_.now() : Qor::never);
   }
   // Looks once at each set that is in frrMtableOifSet from the start to its turn.
   template <class Look>
   void lookAtArmed(Look const& look) {
      auto const& armed = chip_->frrMtableOifSet();
      auto left = armed;
      auto const before = chip_->disarmed;
      while (auto const entry = taken(armed)) {
         left.erase(entry->first);
         look(entry->first, entry->second);
      }
      for (auto const& [set, serial] : left) {
         bool const stayed = before.contains(set) ? before.at(set) == chip_->disarmed[set]
                                                  : !chip_->disarmed.contains(set);
         if (armed.contains(set) && stayed) print("passed over ", set);
      }
   }
   template <class Rewrite>
   void rewriteWaiting(Seconds deadline, Rewrite const& rewrite) {
      auto const& waiting = chip_->frrProcessingOifSet();
      while (!waiting.empty() && world_.now() < deadline) {
         auto const entry = taken(waiting);
         if (!entry) return print("nothing rewritten");
         rewrite(entry->first, entry->second);
         chip_->frrProcessingOifSet.del(entry->first);
      }
   }

   // Enters each VRF and visits its routes, from a route on that was visited before or has gone.
   // Returns false as soon as a visit does.
   template <class Enter, class Visit>
   bool eachRoute(VrfName const& vrf, IpGenRouteKey const& behind, Enter const& enter,
                  Visit const& visit) {
      auto const& vrfs = world_.hw_->vrfStatus();
      for (auto v = vrfs.lowerBound(vrf); v != vrfs.end();) {
         auto const [name, status] = *v;
         auto const& routes = status->route();
         bool const entered = enter(name);
         for (auto r = name == vrf ? routes.upperBound(behind) : routes.begin();
              entered && r != routes.end() && world_.hw_->vrfStatus(name) == status;) {
            auto const [k, route] = *r;
            if (!visit(name, *route)) return false;
            r = routes.upperBound(k);
         }
         v = vrfs.upperBound(name);
      }
      return true;
   }
   // Calls review(intf, vlan, time of the last hit) for each fastdrop of a route.
   template <class Review>
   void eachFastdrop(Hardware::RouteStatus const& route, Review const& review) {
      auto const& fastdrops = route.fastdropLastPollTime();
      for (auto f = fastdrops.begin(); f != fastdrops.end();) {
         auto const [intf, last] = *f;
         review(intf, vlanOf(IntfId(intf)), last);
         f = fastdrops.upperBound(intf);
      }
   }

   W& world_;
   Ptr<Chip> const chip_;
   OnInterval onInterval_;
   bool initialized_ = false;

 private:
   // The entry that the system took next: its next line names the set, a record, the members, or the
   // first backup.
   std::optional<std::pair<OifSetPtr, U64>> taken(std::map<OifSetPtr, U64> const& sets) const {
      std::string line = world_.nextLine();
      if (line.starts_with("8 void")) return std::nullopt;  // the next pass
      line = line.substr(0, line.find(" | ")) + ' ';        // without the sizes of the tables
      auto const names = [&](auto const&... parts) {
         return line.find(cat(parts...)) != std::string::npos;
      };
      for (auto const& [set, serial] : sets) {
         auto const named = chip_->record(set, serial);
         auto const record = named ? named : chip_->inUseRecord(set);
         auto const& backups = set->portVlanSet().portVlanFrr();
         if (names(set, ')') || names(set, ' ') || names(set->portVlanSet()) ||
             (record && names(" zombie, mcastId: ", record->id, ' ')) ||
             (!backups.empty() && line == cat("8 add port ", backups.begin()->first, ' ')))
            return std::pair(set, serial);
      }
      return std::nullopt;
   }
   void zeroReferencesIs(bool) override {
      Chip& c = *chip_;
      printCleanup();
      c.deleted.is(true);
      for (unsigned n = 0; !c.zombieOifSet().empty(); ++n) {
         auto const [key, record] = *c.zombieOifSet().begin();
         print(texts().atEnd, record->id, texts().atEnd.blip ? cat(", iter ", n) : "");
         c.zombieOifSetDel(key);
      }
      disarm();
      end();
      onInterval_.notifierIs(nullptr);
      c.react = nullptr;
   }

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
