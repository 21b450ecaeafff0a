#include "agent/Timeline.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <set>
#include <unordered_map>

#include "Qor/Clock.h"

namespace Agent {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;
using Vel::Mroute::InUseRouteHandleKey;
using Vel::Mroute::ZombieKey;

namespace {

// Microseconds with the nanoseconds as a fraction, and no digits that say nothing.
std::string microseconds(double seconds) {
   char text[64];
   std::snprintf(text, sizeof text, "%.3f", seconds * 1e6);
   std::string out(text);
   if (out.ends_with(".000")) out.resize(out.size() - 4);
   return out;
}

std::string jsonText(std::string_view text) {
   return nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

std::string oifSetName(OifSetPtr const& oifSet) {
   return "OifSet#" + std::to_string(oifSet->serial());
}

}  // namespace

// ---- What is watched. ----

class Timeline::QorXact final : public Hux::Xact::Notifiee {
 public:
   QorXact(Timeline& timeline, std::uint64_t id, Hux::XactPtr const& xact)
         : timeline_(timeline), id_(id), xact_(xact) {
      notifierIs(xact);
   }
   void onState() override { timeline_.end(id_, outcome(*xact_), Qor::now()); }

   static char const* outcome(Hux::Xact const& xact) {
      if (xact.pending()) return "pending";
      return xact.state() == Hux::Xact::State::succeeded ? "succeeded" : "failed";
   }

 private:
   Timeline& timeline_;
   std::uint64_t const id_;
   Hux::XactPtr const xact_;
};

// The tracks of one switch.
class Timeline::QorMrouteSwitch final : public AsyncMrouteSwitch::Notifiee {
 public:
   QorMrouteSwitch(Timeline& timeline, unsigned process, AsyncMrouteSwitch const& mrouteSwitch)
         : timeline_(timeline), process_(process) {
      notifierIs(&mrouteSwitch);
   }

   void onInUseRouteHandleKey(RouteHandle const& handle) override {
      endSpan(routes_, handle.value(), inUse(handle) ? "replaced" : "released");
      showRoute(handle);
      tablesChanged();
   }
   void onInUseRouteHandleKeyImmediate() override {
      endSpans(routes_, "released", [this](Qor::U64 handle) {
         return inUse(RouteHandle(static_cast<Qor::U32>(handle)));
      });
      for (auto const& [handle, key] : notifier()->inUseRouteHandleKey()) {
         if (!routes_.contains(handle.value())) showRoute(handle);
      }
      tablesChanged();
   }

   void onZombieOifSet(ZombieKey const& key) override {
      auto const record = notifier()->zombieOifSet(key);
      endZombie(zombies_.find(key), record != nullptr);
      if (record) showZombie(key, *record);
      tablesChanged();
   }
   void onZombieOifSetImmediate() override {
      for (auto it = zombies_.begin(); it != zombies_.end();) {
         bool const there = notifier()->zombieOifSet(it->first) != nullptr;
         it = there ? std::next(it) : endZombie(it, false);
      }
      for (auto const& [key, record] : notifier()->zombieOifSet()) {
         if (!zombies_.contains(key)) showZombie(key, *record);
      }
      tablesChanged();
   }

   void onFrrProcessingOifSet(OifSetPtr const& oifSet) override {
      bool const waits = notifier()->frrProcessingOifSet(oifSet).get() != nullptr;
      if (!waits) endSpan(reroutes_, oifSet->serial(), "done");
      if (waits) showReroute(oifSet);
      tablesChanged();
   }
   void onFrrProcessingOifSetImmediate() override {
      std::set<Qor::U64> waiting;
      for (auto const& [oifSet, record] : notifier()->frrProcessingOifSet())
         waiting.insert(oifSet->serial());
      endSpans(reroutes_, "done", [&](Qor::U64 serial) { return waiting.contains(serial); });
      for (auto const& [oifSet, record] : notifier()->frrProcessingOifSet())
         showReroute(oifSet);
      tablesChanged();
   }

   void onInUseOifSet(OifSetPtr const& oifSet) override {
      bool const there = notifier()->inUseOifSet(oifSet).get() != nullptr;
      // A zombie whose record goes with it was purged, not brought back.
      for (std::size_t i = 0; !there && i < undecided_.size(); ++i) {
         if (undecided_[i].oifSet != oifSet->serial()) continue;
         timeline_.end(undecided_[i].span, "purged", undecidedAt_);
         undecided_.erase(undecided_.begin() + static_cast<std::ptrdiff_t>(i));
         break;
      }
      announce("inUseOifSet", oifSet, there);
   }
   void onFrrMtableOifSet(OifSetPtr const& oifSet) override {
      announce("frrMtableOifSet", oifSet, notifier()->frrMtableOifSet(oifSet).get() != nullptr);
   }
   void onMcastIdToOifSet(Qor::U32) override { tablesChanged(); }
   void onDeleted() override {
      timeline_.writeInstant(Thread::notifications, "deleted", nullptr, process_);
   }

   void showAll() {
      onInUseRouteHandleKeyImmediate();
      onZombieOifSetImmediate();
      onFrrProcessingOifSetImmediate();
   }

   // Writes what is known by now of an instant before `time`.
   void settleInstant(double time) {
      if (!undecided_.empty() && undecidedAt_ < time) {
         // Its record has stayed without it.
         for (Zombie const& zombie : undecided_)
            timeline_.end(zombie.span, "resurrected", undecidedAt_);
         undecided_.clear();
      }
      if (tablesDirty_ && tablesAt_ < time) writeTables();
   }

 private:
   struct Zombie {
      std::uint64_t span;
      Qor::U64 oifSet;  // its serial
      bool sharable;    // not replaced by a newer record, so it can be brought back
   };
   using Spans = std::unordered_map<Qor::U64, std::uint64_t>;
   using Zombies = std::map<ZombieKey, Zombie>;

   void endSpan(Spans& spans, Qor::U64 key, char const* outcome) {
      auto const it = spans.find(key);
      if (it == spans.end()) return;
      timeline_.end(it->second, outcome, Qor::now());
      spans.erase(it);
   }
   // All but those that stay.
   template <class Stays>
   void endSpans(Spans& spans, char const* outcome, Stays const& stays) {
      std::erase_if(spans, [&](auto const& item) {
         if (stays(item.first)) return false;
         timeline_.end(item.second, outcome, Qor::now());
         return true;
      });
   }

   bool inUse(RouteHandle handle) const {
      return notifier()->inUseRouteHandleKey(handle) != InUseRouteHandleKey();
   }
   void showRoute(RouteHandle handle) {
      if (!inUse(handle)) return;
      InUseRouteHandleKey const key = notifier()->inUseRouteHandleKey(handle);
      routes_[handle.value()] = timeline_.begin(process_, "route", key.routeKey().pretty(),
                                                {{"routeHandle", handle.value()},
                                                 {"vlan", key.vlan().value()},
                                                 {"vrfId", key.vrfId().value()}});
   }
   void showZombie(ZombieKey const& key, AsyncMtableOifSet const& record) {
      OifSetPtr const oifSet = record.oifSet();
      auto const span =
            timeline_.begin(process_, "zombie", "zombie " + oifSetName(oifSet),
                            {{"multicastId", key.multicastId()}, {"expiryTime", key.expiryTime()}});
      zombies_[key] = {span, oifSet->serial(), notifier()->inUseOifSet(oifSet).get() == &record};
   }
   void showReroute(OifSetPtr const& oifSet) {
      if (reroutes_.contains(oifSet->serial())) return;
      reroutes_[oifSet->serial()] =
            timeline_.begin(process_, "reroute", "reroute " + oifSetName(oifSet));
   }

   // One that goes early was purged or brought back; what else happens at this instant tells.
   Zombies::iterator endZombie(Zombies::iterator it, bool replaced) {
      if (it == zombies_.end()) return it;
      auto const [key, zombie] = *it;
      double const now = Qor::now();
      if (replaced) {
         timeline_.end(zombie.span, "replaced", now);
      } else if (key.expiryTime() <= now) {
         timeline_.end(zombie.span, "expired", now);
      } else if (notifier()->deleted()) {
         timeline_.end(zombie.span, "dropped", now);
      } else if (!zombie.sharable) {
         timeline_.end(zombie.span, "purged", now);
      } else {
         timeline_.settleInstant();
         undecided_.push_back(zombie);
         undecidedAt_ = now;
      }
      return zombies_.erase(it);
   }

   void announce(char const* collection, OifSetPtr const& oifSet, bool there) {
      timeline_.writeInstant(Thread::notifications, collection,
                             {{"oifSet", oifSet->serial()}, {"there", there}}, process_);
      tablesChanged();
   }

   void tablesChanged() {
      timeline_.settleInstant();
      tablesDirty_ = true;
      tablesAt_ = Qor::now();
      AsyncMrouteSwitch const& s = *notifier();
      tables_ = {s.mcastIdToOifSet().size(), s.zombieOifSet().size(),
                 s.inUseRouteHandleKey().size(), s.frrProcessingOifSet().size()};
   }
   void writeTables() {
      tablesDirty_ = false;
      timeline_.write("C", process_, 0, "tables", tablesAt_,
                      {{"args",
                        {{"groups", tables_[0]},
                         {"zombies", tables_[1]},
                         {"routes", tables_[2]},
                         {"rerouting", tables_[3]}}}});
   }

   Timeline& timeline_;
   unsigned const process_;
   Spans routes_;    // by handle
   Spans reroutes_;  // by the oif set's serial
   Zombies zombies_;
   std::vector<Zombie> undecided_;  // ended early, at undecidedAt_
   double undecidedAt_ = 0;
   bool tablesDirty_ = false;
   double tablesAt_ = 0;
   std::array<std::size_t, 4> tables_{};
};

// ---- The file. ----

Timeline::Timeline(std::ostream& out) : out_(out) {
   out_ << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
}

Timeline::~Timeline() {
   finish();
}

unsigned Timeline::observe(AsyncMrouteSwitch const& mrouteSwitch) {
   auto const process = static_cast<unsigned>(switches_.size()) + 1;
   auto const named = [&](char const* what, unsigned thread, std::string const& name) {
      write("M", process, thread, what, 0, {{"args", {{"name", name}}}});
   };
   named("process_name", 0, mrouteSwitch.name());
   named("thread_name", static_cast<unsigned>(Thread::notifications), "notifications");
   named("thread_name", static_cast<unsigned>(Thread::events), "events");
   switches_.push_back(std::make_unique<QorMrouteSwitch>(*this, process, mrouteSwitch));
   switches_.back()->showAll();
   return process;
}

void Timeline::xact(std::string_view name, Hux::XactPtr const& xact, unsigned process) {
   if (!xact || finished_) return;
   std::uint64_t const id = begin(process, "xact", std::string(name));
   if (xact->pending()) {
      xacts_.emplace(id, std::make_unique<QorXact>(*this, id, xact));
   } else {
      end(id, QorXact::outcome(*xact), Qor::now());
   }
}

void Timeline::instant(std::string_view name, Args const& args, unsigned process) {
   writeInstant(Thread::events, name, args, process);
}

void Timeline::counter(std::string_view name,
                       std::initializer_list<std::pair<char const*, double>> const& values,
                       unsigned process) {
   Args args = Args::object();
   for (auto const& [key, value] : values)
      args[key] = value;
   settleInstant();
   write("C", process, 0, name, Qor::now(), {{"args", args}});
}

void Timeline::finish() {
   if (finished_) return;
   for (auto const& reactor : switches_)
      reactor->settleInstant(Qor::never);
   while (!open_.empty())
      end(open_.begin()->first, "open", Qor::now());
   out_ << "\n]}\n";
   out_.flush();
   finished_ = true;
   xacts_.clear();
   switches_.clear();
}

std::uint64_t Timeline::begin(unsigned process, char const* category, std::string name,
                              Args const& args) {
   settleInstant();
   std::uint64_t const id = ++lastId_;
   Args fields = {{"cat", category}, {"id", std::to_string(id)}};
   if (!args.is_null()) fields["args"] = args;
   write("b", process, 0, name, Qor::now(), std::move(fields));
   open_.emplace(id, Open{process, category, std::move(name)});
   return id;
}

void Timeline::end(std::uint64_t id, char const* outcome, double time) {
   auto const node = open_.extract(id);
   if (node.empty()) return;
   if (time == Qor::now()) settleInstant();
   Open const& span = node.mapped();
   write("e", span.process, 0, span.name, time,
         {{"cat", span.category}, {"id", std::to_string(id)}, {"args", {{"outcome", outcome}}}});
   xacts_.erase(id);  // perhaps the reactor that is being told
}

void Timeline::writeInstant(Thread thread, std::string_view name, Args const& args,
                            unsigned process) {
   settleInstant();
   Args fields = {{"s", "t"}};
   if (!args.is_null()) fields["args"] = args;
   write("i", process, static_cast<unsigned>(thread), name, Qor::now(), std::move(fields));
}

void Timeline::write(char const* phase, unsigned process, unsigned thread, std::string_view name,
                     double time, Args fields) {
   if (finished_) return;
   out_ << (events_++ ? ",\n" : "\n") << R"({"ph":")" << phase << R"(","pid":)" << process
        << R"(,"tid":)" << thread << R"(,"ts":)" << microseconds(time) << R"(,"name":)"
        << jsonText(name);
   for (auto const& [key, value] : fields.items())
      out_ << ',' << jsonText(key) << ':'
           << value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
   out_ << '}';
}

void Timeline::settleInstant() {
   for (auto const& reactor : switches_)
      reactor->settleInstant(Qor::now());
}

}  // namespace Agent
