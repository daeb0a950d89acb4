#include "anomaly_database/stream_scan.h"
#include "finding/finding_json.h"
#include "finding/stream_survey.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"
#include "platform/clock.h"

namespace corvane::ctl {

namespace {

Style style_of(StreamState state) {
  return state == StreamState::kJudged ? Style::kPlain : Style::kFaint;
}

std::string text_of(const Context& context, const std::vector<StreamSummary>& streams,
                    const StreamSettings& settings) {
  Table table({{"Client", false, 12},
               {"Policy", false, 8},
               {"Schedule", false, 8},
               {"Type", false, 4, 3},
               {"Application", false, 6, 5},
               {"Destination", false, 6, 4},
               {"Accepted", true},
               {"Last", false, 0, 1},
               {"Waiting", true, 0, 7},
               {"Anomalous", true, 0, 6},
               {"State"}});
  const auto number = [](std::int64_t value) { return number_text(static_cast<double>(value)); };
  for (const StreamSummary& stream : streams) {
    table.add({{stream.key.client},
               {stream.key.policy},
               {stream.key.schedule_name},
               {stream.key.schedule_type},
               {stream.key.app_type},
               {stream.key.destination},
               {number(stream.accepted)},
               {time_text(stream.newest, context.options.utc)},
               {number(stream.waiting)},
               {number(stream.anomalous), stream.anomalous > 0 ? Style::kWarning : Style::kPlain},
               {words_for(stream.state, stream.that_matter, settings), style_of(stream.state)}});
  }
  return table.text(context.terminal) + "\n" +
         counted(static_cast<std::int64_t>(streams.size()), "stream", "streams") + "\n";
}

JsonPtr json_of(const StreamSummary& stream) {
  JsonPtr object(json_object());
  put_stream(object.get(), stream.key);
  put(object.get(), "state", name_of(stream.state));
  put(object.get(), "records", stream.accepted);
  put(object.get(), "that_matter", static_cast<std::int64_t>(stream.that_matter));
  put(object.get(), "by_people", stream.false_positives);
  put(object.get(), "waiting", stream.waiting);
  put(object.get(), "reported", stream.anomalous);
  put_known(object.get(), "first", stream.first);
  put_known(object.get(), "last", stream.last);
  put_known(object.get(), "newest", stream.newest);
  return object;
}

}  // namespace

std::string run_streams(const Context& context) {
  const Options& options = context.options;
  const StreamSettings settings = health::read_configuration(options.config).detect.stream;
  std::vector<StreamSummary> streams =
      survey(scan_streams(context.database.connection()), settings, corvane::now()).streams;
  std::erase_if(streams, [&](const StreamSummary& stream) {
    const bool other_client = !options.client.empty() && stream.key.client != options.client;
    return other_client || (!options.state.empty() && name_of(stream.state) != options.state);
  });
  if (!options.json) return text_of(context, streams, settings);
  const JsonPtr root = document("streams");
  put(root.get(), "records_wanted", static_cast<std::int64_t>(settings.min_observations));
  JsonPtr array(json_array());
  for (const StreamSummary& stream : streams) append(array.get(), json_of(stream));
  put(root.get(), "streams", std::move(array));
  return json_for_terminal(root.get());
}

}  // namespace corvane::ctl
