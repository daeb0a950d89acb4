// One capture of the users' feedback.
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"

namespace corvane::test {
namespace {

const std::string kAnswer = R"({"data": [
  {"type": "anomalyFeedback", "id": "anomaly 1 of a long name", "attributes": {"feedback": "FALSE_POSITIVE"}},
  {"type": "anomalyFeedback", "id": "anomaly 2", "attributes": {"feedback": "CONFIRMED"}},
  {"type": "anomalyFeedback", "id": "anomaly 3", "attributes": {"feedback": "FALSE_POSITIVE"}}]})";
const std::string kEarlier = "ANOMALY_DATA_FEEDBACK|anomaly 2|1|1600000000";

std::vector<Stated> stated_lines() {
  std::vector<Stated> stated{
      {error("Failed to get user feedback response from API"), kAny, kEarlier},
      {error("Failed to get user feedback response from API. API return code - 56"), kAny,
       kEarlier},
      {error("Failed to parse user feedback response " + kAnswer), kAny, kEarlier}};
  for (const std::string id : {"anomaly 1 of a long name", "anomaly 2", "anomaly 3"}) {
    stated.push_back({error("Failed to capture user feedback for anomaly id " + id), 1,
                      id == "anomaly 2" ? kEarlier : ""});
  }
  append(stated, kBrokenRequestLines);
  return stated;
}

class Feedback : public FaultTest {
 protected:
  int attempt(const FaultPoint& point) {
    SmallWorld world;
    query(world.handle(), "INSERT INTO ANOMALY_DATA_FEEDBACK VALUES ('anomaly 2', 1, 1600000000)");
    corvane::fake::state().handler = [](const corvane::fake::HttpRequest&) {
      if (fails(Fault::kRequest)) return kBrokenRequest;
      const FaultsSuspended suspended;
      return corvane::fake::HttpAnswer{.body = kAnswer};
    };
    const auto capture = [&] { world.service.capture_anomaly_feedback(); };
    const int failed = failed_calls_of(capture, point);
    const Outcome outcome = outcome_of(world);
    capture();
    Outcome undisturbed = outcome_of(world);
    EXPECT_EQ(undisturbed.rows, (Rows{"ANOMALY_DATA_FEEDBACK|anomaly 1 of a long name|1|1700000000",
                                      "ANOMALY_DATA_FEEDBACK|anomaly 2|0|1700000000",
                                      "ANOMALY_DATA_FEEDBACK|anomaly 3|1|1700000000"}))
        << "the next capture does not make up for it";
    undisturbed.log.clear();
    expect_stated(outcome, undisturbed, stated_);
    return failed;
  }

  const std::vector<Stated> stated_ = stated_lines();
};

TEST_P(Feedback, LosesWhatIsLoggedAndNoMore) {
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(
    Every, Feedback,
    ::testing::ValuesIn(once_and_from_then_on({Fault::kAllocation, Fault::kStatement,
                                               Fault::kRequest, Fault::kWrite, Fault::kSync})),
    kind_name);

}  // namespace
}  // namespace corvane::test
