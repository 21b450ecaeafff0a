#include "agent/timeline/Timeline.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Qor/Clock.h"

namespace Agent {

// ---- Transactions. ----

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

// ---- Events. ----

Timeline::Timeline(std::vector<TimelineSink*> sinks)
      : sinks_(std::move(sinks)),
        detailed_(std::any_of(sinks_.begin(), sinks_.end(),
                              [](TimelineSink const* sink) { return sink->detailed(); })) {}

Timeline::~Timeline() {
   finish();
}

unsigned Timeline::observe(std::unique_ptr<Process> process) {
   observed_.push_back(std::move(process));
   observed_.back()->showAll();
   return observed_.back()->number();
}

unsigned Timeline::newProcess(std::string const& name) {
   unsigned const process = ++processes_;
   send({Phase::processName, process, Track::spans, 0, name, {}, 0, nullptr});
   for (auto const& [track, text] :
        {std::pair(Track::notifications, "notifications"), std::pair(Track::events, "events")})
      send({Phase::threadName, process, track, 0, text, {}, 0, nullptr});
   return process;
}

void Timeline::xact(std::string_view name, Hux::XactPtr const& xact, unsigned process) {
   if (!xact || finished_ || !detailed_) return;
   std::uint64_t const id = begin(process, "xact", std::string(name), nullptr);
   if (xact->pending()) {
      xacts_.emplace(id, std::make_unique<QorXact>(*this, id, xact));
   } else {
      end(id, QorXact::outcome(*xact), Qor::now());
   }
}

void Timeline::instant(std::string_view name) {
   instant(name, nullptr);
}

void Timeline::instant(std::string_view name, Args const& args, unsigned process) {
   writeInstant(Track::events, name, args, process);
}

void Timeline::link(std::string_view name, std::string const& intf, bool fails) {
   instant(name, {{"interface", intf}, {"fails", fails}});
}

void Timeline::counter(std::string_view name,
                       std::initializer_list<std::pair<char const*, double>> const& values,
                       unsigned process) {
   Args args = Args::object();
   for (auto const& [key, value] : values)
      args[key] = value;
   settleInstant();
   send({Phase::counter, process, Track::spans, Qor::now(), name, {}, 0, args});
}

void Timeline::finish() {
   if (finished_) return;
   endAll("open");
   finished_ = true;
   for (TimelineSink* const sink : sinks_)
      sink->finish();
}

void Timeline::crash() {
   if (finished_) return;
   endAll("lost");
   instant("agent lost", nullptr, processes_);
}

// Ends all spans and stops observing.
void Timeline::endAll(char const* outcome) {
   for (auto const& process : observed_)
      process->settleInstant(Qor::never);
   while (!open_.empty())
      end(open_.begin()->first, outcome, Qor::now());
   xacts_.clear();
   observed_.clear();
}

std::uint64_t Timeline::begin(unsigned process, char const* category, std::string name,
                              Args const& args) {
   settleInstant();
   std::uint64_t const id = ++lastId_;
   send({Phase::begin, process, Track::spans, Qor::now(), name, category, id, args});
   open_.emplace(id, Open{process, category, std::move(name)});
   return id;
}

void Timeline::end(std::uint64_t id, char const* outcome, double time) {
   auto const node = open_.extract(id);
   if (node.empty()) return;
   if (time == Qor::now()) settleInstant();
   Open const& span = node.mapped();
   Args const args = {{"outcome", outcome}};
   send({Phase::end, span.process, Track::spans, time, span.name, span.category, id, args});
   xacts_.erase(id);  // last, because this may be the reactor that is being notified
}

void Timeline::writeInstant(Track track, std::string_view name, Args const& args,
                            unsigned process) {
   settleInstant();
   send({Phase::instant, process, track, Qor::now(), name, {}, 0, args});
}

std::uint64_t Timeline::Process::begin(char const* category, std::string name) {
   return begin(category, std::move(name), nullptr);
}

void Timeline::Process::notification(std::string_view name) {
   notification(name, nullptr);
}

void Timeline::send(TimelineEvent const& event) {
   if (finished_) return;
   for (TimelineSink* const sink : sinks_)
      sink->event(event);
}

void Timeline::turnEnds() {
   if (finished_) return;
   for (TimelineSink* const sink : sinks_)
      sink->turnEnds();
}

void Timeline::settleInstant() {
   for (auto const& process : observed_)
      process->settleInstant(Qor::now());
}

}  // namespace Agent
