#include "finding/finding_json.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "util/json.h"

namespace corvane {

namespace {

constexpr int kSchemaVersion = 1;
constexpr char kOwnHistory[] = "own history";
constexpr char kOtherStream[] = "another stream";

// Anything beyond these bounds is not the work of the detection.
constexpr std::size_t kMostName = 4096;
constexpr std::size_t kMostIncident = 1024;
constexpr std::size_t kMostListed = 32;
constexpr std::int64_t kMostRuns = 1000;
constexpr std::size_t kMostDetails = std::size_t{256} << 10;

JsonPtr object() { return JsonPtr(json_object()); }

// Null: without a bound.
void put_bound(json_t* into, const char* name, double value) {
  if (std::isfinite(value)) {
    put_amount(into, name, value);
  } else {
    put(into, name, JsonPtr(json_null()));
  }
}

JsonPtr figure_json(Figure figure, const FigureView& view) {
  JsonPtr entry = object();
  put(entry.get(), "name", names_of(figure).id);
  put(entry.get(), "unit", names_of(figure).unit);
  put_amount(entry.get(), "value", view.value);
  if (!view.has_usual) return entry;
  put_bound(entry.get(), "usual", view.usual);
  put_bound(entry.get(), "usual_low", view.low);
  put_bound(entry.get(), "usual_high", view.high);
  if (view.usual > 0 && std::isfinite(view.usual)) {
    put_amount(entry.get(), "factor", view.value / view.usual);
  }
  put_amount(entry.get(), "deviation", view.deviation);
  return entry;
}

JsonPtr figures_json(const FigureViews& figures) {
  JsonPtr array(json_array());
  for (std::size_t i = 0; i < kFigures; ++i) {
    if (figures.at(i).known) append(array.get(), figure_json(Figure{i}, figures.at(i)));
  }
  return array;
}

JsonPtr slow_change_json(const SlowChange& change) {
  JsonPtr entry = object();
  put(entry.get(), "runs", static_cast<std::int64_t>(change.runs));
  put(entry.get(), "measure", names_of(change.of_files ? kFiles : kTransferred).id);
  put_amount(entry.get(), "share", change.share);
  put_amount(entry.get(), "share_before", change.share_before);
  return entry;
}

JsonPtr causes_json(const std::vector<Cause>& causes) {
  JsonPtr array(json_array());
  for (const Cause& cause : causes) {
    JsonPtr entry = object();
    put(entry.get(), "id", id_of(cause.kind));
    put(entry.get(), "words", cause.words);
    append(array.get(), std::move(entry));
  }
  return array;
}

JsonPtr reference_json(const BackupReference& backup) {
  JsonPtr entry = object();
  put(entry.get(), "backup_id", backup.backup_id);
  put(entry.get(), "time", backup.time);
  return entry;
}

std::string name_member(const json_t* from, const char* name) {
  std::string text = text_member(from, name);
  return text.size() > kMostName ? std::string() : text;
}

StreamKey read_stream(const json_t* from) {
  StreamKey stream;
  stream.client = name_member(from, "client");
  if (stream.client.empty()) return {};
  stream.policy = name_member(from, "policy");
  stream.policy_type = name_member(from, "policy_type");
  stream.schedule_type = name_member(from, "schedule_type");
  stream.schedule_name = name_member(from, "schedule_name");
  stream.app_type = name_member(from, "application_type");
  stream.destination = name_member(from, "destination");
  return stream;
}

// False when there is neither a number nor the null that means "without a bound".
bool read_bound(const json_t* from, const char* name, Figure figure, double& bound) {
  const bool is_number = read_number(from, name, bound);
  const bool is_endless =
      json_is_null(json_object_get(from, name)) || (is_number && is_unlimited(figure, bound));
  if (is_endless) bound = std::numeric_limits<double>::infinity();
  return is_number || is_endless;
}

FigureViews read_figures(const json_t* array) {
  FigureViews figures;
  const std::size_t count = std::min(json_array_size(array), kMostListed);
  for (std::size_t i = 0; i < count; ++i) {
    const json_t* entry = json_array_get(array, i);
    const std::optional<Figure> figure = figure_of(text_member(entry, "name"));
    if (!figure) continue;
    FigureView view;
    view.known = read_number(entry, "value", view.value);
    if (!view.known) continue;
    view.has_usual = read_bound(entry, "usual", *figure, view.usual) &&
                     read_bound(entry, "usual_low", *figure, view.low) &&
                     read_bound(entry, "usual_high", *figure, view.high) &&
                     read_number(entry, "deviation", view.deviation);
    figures.at(*figure) = view;
  }
  return figures;
}

// Without one that can be the detection's, the figures are the reason.
std::optional<SlowChange> read_slow_change(const json_t* from) {
  const std::string measure = text_member(from, "measure");
  SlowChange change;
  change.of_files = measure == names_of(kFiles).id;
  if (!change.of_files && measure != names_of(kTransferred).id) return std::nullopt;
  const std::int64_t runs = integer_member(from, "runs");
  if (runs < 2 || runs > kMostRuns) return std::nullopt;
  change.runs = static_cast<std::size_t>(runs);
  const bool known = read_number(from, "share", change.share) &&
                     read_number(from, "share_before", change.share_before);
  const bool possible =
      change.share_before >= 0 && change.share_before < change.share && change.share <= 1;
  return known && possible ? std::optional(change) : std::nullopt;
}

std::vector<Cause> read_causes(const json_t* array) {
  std::vector<Cause> causes;
  const std::size_t count = std::min(json_array_size(array), kMostListed);
  for (std::size_t i = 0; i < count; ++i) {
    const json_t* entry = json_array_get(array, i);
    const std::string id = name_member(entry, "id");
    if (!id.empty()) causes.push_back({cause_of(id), name_member(entry, "words")});
  }
  return causes;
}

BackupReference read_reference(const json_t* from) {
  return {name_member(from, "backup_id"), integer_member(from, "time")};
}

}  // namespace

void put_stream(json_t* into, const StreamKey& key) {
  put(into, "client", key.client);
  put(into, "policy", key.policy);
  put(into, "policy_type", key.policy_type);
  put(into, "schedule_type", key.schedule_type);
  put(into, "schedule_name", key.schedule_name);
  put(into, "application_type", key.app_type);
  put(into, "destination", key.destination);
}

JsonPtr to_json(const Finding& finding) {
  JsonPtr stream = object();
  put_stream(stream.get(), finding.stream);
  JsonPtr root = object();
  json_t* into = root.get();
  put(into, "schema", std::int64_t{kSchemaVersion});
  put(into, "summary", finding.summary);
  put(into, "severity", number_of(finding.severity));
  put(into, "incident", finding.incident);
  put(into, "stream", std::move(stream));
  put(into, "backup_id", finding.backup_id);
  put(into, "job_id", finding.job_id);
  put(into, "time", finding.time);
  put(into, "causes", causes_json(finding.causes));
  if (finding.slow_change) put(into, "slow_change", slow_change_json(*finding.slow_change));
  put(into, "features", figures_json(finding.figures));
  put(into, "judged_by", finding.by_other_stream ? kOtherStream : kOwnHistory);
  put(into, "observations", static_cast<std::int64_t>(finding.observations));
  put_amount(into, "eps", finding.eps);
  put(into, "last_good",
      finding.last_good.backup_id.empty() ? JsonPtr(json_null())
                                          : reference_json(finding.last_good));
  if (finding.usual_since > 0) put(into, "usual_since", finding.usual_since);
  if (finding.adopted) put(into, "adopted", reference_json(*finding.adopted));
  return root;
}

Finding from_json(const json_t* details) {
  Finding finding;
  const json_t* severity = json_object_get(details, "severity");
  finding.severity =
      json_is_integer(severity) ? severity_of(json_integer_value(severity)) : Severity::kMajor;
  finding.summary = name_member(details, "summary");
  finding.incident = name_member(details, "incident");
  if (finding.incident.size() > kMostIncident) finding.incident.clear();
  finding.stream = read_stream(json_object_get(details, "stream"));
  finding.has_stream = !finding.stream.client.empty();
  finding.backup_id = name_member(details, "backup_id");
  finding.job_id = integer_member(details, "job_id");
  finding.time = integer_member(details, "time");
  finding.causes = read_causes(json_object_get(details, "causes"));
  finding.slow_change = read_slow_change(json_object_get(details, "slow_change"));
  finding.figures = read_figures(json_object_get(details, "features"));
  finding.by_other_stream = text_member(details, "judged_by") == kOtherStream;
  finding.observations =
      static_cast<std::size_t>(std::max<std::int64_t>(integer_member(details, "observations"), 0));
  read_number(details, "eps", finding.eps);
  finding.last_good = read_reference(json_object_get(details, "last_good"));
  finding.usual_since = integer_member(details, "usual_since");
  const json_t* adopted = json_object_get(details, "adopted");
  if (json_is_object(adopted)) finding.adopted = read_reference(adopted);
  return finding;
}

JsonPtr parse_details(std::string_view details) { return parse_json_object(details, kMostDetails); }

std::string with_adoption(const std::string& details, const BackupReference& adopted) {
  const JsonPtr root = parse_details(details);
  if (root == nullptr) return details;
  put(root.get(), "adopted", reference_json(adopted));
  return json_text(root.get());
}

}  // namespace corvane
