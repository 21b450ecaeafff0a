#include "agent/live/Metrics.h"

#include <prometheus/histogram.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <utility>

namespace Agent {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

namespace {

prometheus::Histogram::BucketBoundaries const bounds = {
      0.0001, 0.00025, 0.0005, 0.001, 0.002, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 5};

struct Scalar {
   char const* name;
   char const* help;
   Qor::U64 LiveFigures::*value;
};

constexpr Scalar gauges[] = {
      {"velmroute_groups", "Replication groups in use.", &LiveFigures::groups},
      {"velmroute_zombies", "Groups without a route that are kept for a while.",
       &LiveFigures::zombies},
};

constexpr Scalar counters[] = {
      {"velmroute_reroutes_total", "Failures of interfaces that rewrote groups.",
       &LiveFigures::reroutes},
      {"velmroute_resurrections_total", "Kept groups that a route took up again.",
       &LiveFigures::resurrections},
      {"velmroute_netlink_overruns_total", "Losses of notifications of the kernel.",
       &LiveFigures::netlinkOverruns},
      {"velmroute_switch_reconnects_total", "Connections to the switch after the first.",
       &LiveFigures::reconnects},
      {"velmroute_openflow_errors_total", "Errors that the switch reported.",
       &LiveFigures::openflowErrors},
      {"velmroute_switch_connections_lost_total", "Connections to the switch that ended.",
       &LiveFigures::connectionsLost},
      {"velmroute_switch_connections_refused_total", "Connections that the switch refused.",
       &LiveFigures::connectionsRefused},
      {"velmroute_control_clients_refused_total",
       "Clients of the control socket that were refused or dropped.", &LiveFigures::controlRefused},
      {"velmroute_keepalive_packets_total",
       "Packets that kept routes of the hardware alive in the kernel.",
       &LiveFigures::keepAlivePackets},
      {"velmroute_log_lines_suppressed_total", "Lines of the log beyond its limits.",
       &LiveFigures::logLinesSuppressed},
};

std::string labelWord(std::string_view word) {
   constexpr std::size_t longest = 32;
   bool const plain = std::all_of(word.begin(), word.end(), [](unsigned char c) {
      return std::islower(c) || std::isdigit(c) || c == '-';
   });
   return plain && word.size() <= longest ? std::string(word) : "other";
}

ClientMetric gauge(double value) {
   ClientMetric metric;
   metric.gauge.value = value;
   return metric;
}

MetricFamily family(char const* name, char const* help, MetricType type) {
   return {name, help, type, {}};
}

MetricFamily scalar(Scalar const& described, MetricType type, LiveFigures const& figures) {
   MetricFamily made = family(described.name, described.help, type);
   auto const value = static_cast<double>(figures.*described.value);
   ClientMetric metric;
   (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
   made.metric.push_back(metric);
   return made;
}

MetricFamily routes(LiveFigures const& figures) {
   using Labels = std::pair<std::string, std::string>;
   std::map<Labels, Qor::U64> counts;
   for (auto const& row : figures.routes) {
      Labels labels{labelWord(row.state), labelWord(row.reason)};
      if (counts.size() >= Metrics::maxRouteLabels && !counts.contains(labels))
         labels = {"other", "other"};
      counts[labels] += row.count;
   }
   MetricFamily made =
         family("velmroute_routes", "Routes by state, and by the reason of that state.",
                MetricType::Gauge);
   for (auto const& [labels, count] : counts) {
      ClientMetric metric = gauge(static_cast<double>(count));
      metric.label = {{"state", labels.first}, {"reason", labels.second}};
      made.metric.push_back(metric);
   }
   return made;
}

MetricFamily tables(char const* name, char const* help, LiveFigures const& figures,
                    Qor::U64 LiveFigures::Table::*value) {
   MetricFamily made = family(name, help, MetricType::Gauge);
   for (auto const& table : figures.tables) {
      ClientMetric metric = gauge(static_cast<double>(table.*value));
      metric.label = {{"table", labelWord(table.name)}};
      made.metric.push_back(metric);
   }
   return made;
}

MetricFamily durations(char const* name, char const* help, prometheus::Histogram const& histogram) {
   MetricFamily made = family(name, help, MetricType::Histogram);
   made.metric.push_back(histogram.Collect());
   return made;
}

}  // namespace

struct Metrics::Durations {
   prometheus::Histogram writes{bounds};
   prometheus::Histogram programming{bounds};
};

Metrics::Metrics(Source figures)
      : figures_(std::move(figures)), durations_(std::make_unique<Durations>()) {}

Metrics::~Metrics() = default;

void Metrics::observeWrite(Qor::Seconds duration) {
   durations_->writes.Observe(duration);
}

void Metrics::observeProgramming(Qor::Seconds duration) {
   durations_->programming.Observe(duration);
}

std::string Metrics::text() const {
   LiveFigures const figures = figures_();
   std::vector<MetricFamily> families{routes(figures)};
   for (Scalar const& described : gauges)
      families.push_back(scalar(described, MetricType::Gauge, figures));
   families.push_back(tables("velmroute_table_entries", "Entries in use in a table of the switch.",
                             figures, &LiveFigures::Table::used));
   families.push_back(tables("velmroute_table_size",
                             "Entries for which a table of the switch has room.", figures,
                             &LiveFigures::Table::size));
   families.push_back(family("velmroute_switch_connected", "1 while the switch is connected.",
                             MetricType::Gauge));
   families.back().metric.push_back(gauge(figures.connected ? 1 : 0));
   for (Scalar const& described : counters)
      families.push_back(scalar(described, MetricType::Counter, figures));
   families.push_back(durations("velmroute_write_seconds",
                                "Time until the switch has confirmed a batch of writes.",
                                durations_->writes));
   families.push_back(durations("velmroute_programming_seconds",
                                "Time from the end of the quiet time of a route to the switch's "
                                "confirmation of its entry.",
                                durations_->programming));
   return prometheus::TextSerializer().Serialize(families);
}

}  // namespace Agent
