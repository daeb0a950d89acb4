#include "companions/alert/plain_text.h"
#include "operator_tool/commands.h"
#include "operator_tool/json.h"
#include "operator_tool/words.h"
#include "platform/clock.h"

namespace corvane::ctl {

namespace {

std::string state_words(const StreamSummary& stream, const detect::Settings& settings) {
  if (stream.state != StreamState::kLearning) return name_of(stream.state);
  return "learning " + std::to_string(stream.records) + " of " +
         std::to_string(settings.min_observations);
}

Style style_of(StreamState state) {
  return state == StreamState::kJudged ? Style::kPlain : Style::kFaint;
}

std::string text_of(const Context& context, const std::vector<StreamSummary>& streams,
                    const detect::Settings& settings) {
  Table table({{"Client", false, 12},
               {"Policy", false, 8},
               {"Schedule", false, 8},
               {"Type", false, 4, 3},
               {"Application", false, 6, 5},
               {"Destination", false, 6, 4},
               {"Records", true},
               {"Last", false, 0, 1},
               {"Waiting", true, 0, 7},
               {"Reported", true, 0, 6},
               {"State"}});
  const auto number = [](std::int64_t value) {
    return alert::number_text(static_cast<double>(value));
  };
  for (const StreamSummary& stream : streams) {
    table.add({{stream.key.client},
               {stream.key.policy},
               {stream.key.schedule_name},
               {stream.key.schedule_type},
               {stream.key.app_type},
               {stream.key.destination},
               {number(stream.records)},
               {time_text(stream.newest, context.options.utc)},
               {number(stream.waiting)},
               {number(stream.reported), stream.reported > 0 ? Style::kWarning : Style::kPlain},
               {state_words(stream, settings), style_of(stream.state)}});
  }
  return table.text(context.terminal) + "\n" +
         counted(static_cast<std::int64_t>(streams.size()), "stream", "streams") + "\n";
}

JsonPtr json_of(const StreamSummary& stream) {
  JsonPtr object(json_object());
  put(object.get(), "client", stream.key.client);
  put(object.get(), "policy", stream.key.policy);
  put(object.get(), "policy_type", stream.key.policy_type);
  put(object.get(), "schedule_type", stream.key.schedule_type);
  put(object.get(), "schedule_name", stream.key.schedule_name);
  put(object.get(), "application_type", stream.key.app_type);
  put(object.get(), "destination", stream.key.destination);
  put(object.get(), "state", name_of(stream.state));
  put(object.get(), "records", stream.records);
  put(object.get(), "by_people", stream.by_people);
  put(object.get(), "waiting", stream.waiting);
  put(object.get(), "reported", stream.reported);
  put_known(object.get(), "first", stream.first);
  put_known(object.get(), "last", stream.last);
  put_known(object.get(), "newest", stream.newest);
  return object;
}

}  // namespace

std::string run_streams(const Context& context) {
  const Options& options = context.options;
  const detect::Settings settings = read_configuration(options.config).detect;
  std::vector<StreamSummary> streams = survey(context.database, settings, corvane::now()).streams;
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
  return pretty(root.get());
}

}  // namespace corvane::ctl
