#include "operator_tool/commands.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/layout/metrics.h"
#include "operator_tool/report/output_file.h"

namespace corvane::ctl {

namespace {

std::string json_of(const std::vector<prometheus::MetricFamily>& families) {
  const JsonPtr root = document("metrics");
  JsonPtr array(json_array());
  for (const prometheus::MetricFamily& family : families) {
    for (const prometheus::ClientMetric& metric : family.metric) {
      JsonPtr object(json_object());
      put(object.get(), "name", family.name);
      JsonPtr labels(json_object());
      for (const auto& label : metric.label) {
        put(labels.get(), label.name.c_str(), std::string_view(label.value));
      }
      put(object.get(), "labels", std::move(labels));
      put(object.get(), "value", metric.gauge.value);
      append(array.get(), std::move(object));
    }
  }
  put(root.get(), "metrics", std::move(array));
  return json_for_terminal(root.get());
}

// What to print: nothing when there is a file to write.
std::string put(const Options& options, const std::vector<prometheus::MetricFamily>& families) {
  std::string text = options.json ? json_of(families) : prometheus_text(families);
  if (options.output.empty()) return text;
  replace_file(options.output, text);
  return {};
}

}  // namespace

std::string run_metrics(const Context& context) {
  const auto families = metrics_of(measure(context.options, context.database));
  // What is written must show one state of the database.
  context.database.check_unchanged();
  return put(context.options, families);
}

std::string run_metrics_without_database(const Options& options, const CheckResult& result) {
  return put(options,
             metrics_without_database(health::look_without_database(options.places()), result));
}

}  // namespace corvane::ctl
