#include "agent/timeline/Timeline.h"

#include <fmt/format.h>

#include "Qor/Clock.h"

namespace Agent {

namespace {

// Microseconds, with a fraction only if it is not 0.
std::string microseconds(double seconds) {
   std::string out = fmt::format("{:.3f}", seconds * 1e6);
   if (out.ends_with(".000")) out.resize(out.size() - 4);
   return out;
}

std::string jsonText(std::string_view text) {
   return nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

}  // namespace

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

// ---- The file. ----

Timeline::Timeline(std::ostream& out) : out_(out) {
   out_ << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
}

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
   auto const named = [&](char const* what, unsigned thread, std::string const& text) {
      write("M", process, thread, what, 0, {{"args", {{"name", text}}}});
   };
   named("process_name", 0, name);
   named("thread_name", static_cast<unsigned>(Thread::notifications), "notifications");
   named("thread_name", static_cast<unsigned>(Thread::events), "events");
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
   endAll("open");
   out_ << "\n]}\n";
   out_.flush();
   finished_ = true;
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
   xacts_.erase(id);  // last, because this may be the reactor that is being notified
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
   for (auto const& process : observed_)
      process->settleInstant(Qor::now());
}

}  // namespace Agent
