// Backups that come late: what is later than they are plays no part in their verdicts.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "anomaly_database/statuses.h"
#include "companions/detect/model.h"
#include "finding/anomaly.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

constexpr int kEnough = 8;
constexpr int kDayOfRecord = 20;

Settings few_are_enough() {
  Settings made;
  made.stream.min_observations = kEnough;
  return made;
}

// Everything that a verdict says, and the incident.
std::vector<double> numbers_of(const Verdict& verdict) {
  std::vector<double> numbers{static_cast<double>(verdict.outcome),
                              static_cast<double>(verdict.observations),
                              verdict.noise_share,
                              static_cast<double>(verdict.by_other_stream),
                              static_cast<double>(verdict.causes.size()),
                              verdict.slow_change ? verdict.slow_change->share_before : -1};
  for (const FigureView& view : verdict.figures) {
    for (const double number : {view.value, view.deviation}) numbers.push_back(number);
    if (view.has_usual) numbers.insert(numbers.end(), {view.usual, view.low, view.high});
  }
  const Change& change = verdict.change;
  numbers.insert(numbers.end(), {change.files, change.size, change.stored, change.touched_files,
                                 change.touched_size});
  return numbers;
}

Model make_model() {
  return {few_are_enough(), [](const std::string&) { return std::string("incident_former"); }};
}

struct Late {
  const char* what;
  Backup record;
  Outcome outcome;
  std::function<void(Model&)> before;  // besides the usual days
  std::function<void(Model&)> later;
};

void learn_days(Model& model, int first, int end, const std::function<Backup(int)>& make) {
  for (int day = first; day < end; ++day) model.learn(make(day), kNoCluster);
}

void hold_days(Model& model, int first, int end, const std::function<Backup(int)>& make) {
  for (int day = first; day < end; ++day) model.hold(make(day), {});
}

Backup changed(int day) { return daily(day, 2500, 2.5e6); }
Backup deleted(int day) { return daily(day, 300, 3e5); }
Backup full(int day) { return daily(day); }
Backup full_weekly(int day) { return weekly(day, 500); }

void nothing(Model&) {}

std::vector<Late> cases() {
  constexpr int day = kDayOfRecord;
  return {
      {"history", deleted(day), Outcome::kAnomalous, nothing,
       [](Model& model) { learn_days(model, 21, 60, deleted); }},
      {"false positives", deleted(day), Outcome::kAnomalous, nothing,
       [](Model& model) { model.learn(deleted(25), 1); }},
      {"anomalies that agree", changed(day), Outcome::kAnomalous, nothing,
       [](Model& model) { hold_days(model, 21, 24, changed); }},
      {"anomalies that push others out", changed(day), Outcome::kAdopted,
       [](Model& model) {
         model.clear();
         learn_days(model, 0, day - 3, full);
         hold_days(model, day - 3, day, changed);
       },
       [](Model& model) { hold_days(model, 21, 30, deleted); }},
      {"other full backups", incremental(day, 30), Outcome::kNormal, nothing,
       [](Model& model) { learn_days(model, 21, 60, full_weekly); }},
      {"the first full backups", incremental(day, 30), Outcome::kNormal,
       [](Model& model) {
         model.clear();
         learn_days(model, 0, day, [](int n) { return incremental(n); });
       },
       [](Model& model) { learn_days(model, 21, 60, full); }},
      {"what the stream of the night has learnt", incremental(day, 900, 9e5), Outcome::kAnomalous,
       [](Model& model) { learn_days(model, day - 6, day + 1, [](int n) { return weekly(n); }); },
       [](Model& model) { learn_days(model, 21, 60, [](int n) { return weekly(n); }); }},
      {"anomalies after that of the night", incremental(day, 900, 9e5), Outcome::kAnomalous,
       [](Model& model) { model.hold(daily(day, 800), {}); },
       [](Model& model) { hold_days(model, 21, 40, deleted); }},
      {"a false positive of the incident", deleted(day), Outcome::kAnomalous,
       [](Model& model) { model.hold(changed(19), "incident_former"); },
       [](Model& model) { model.learn(changed(25), 1); }},
      {"other anomalies of the incident", deleted(day), Outcome::kAnomalous,
       [](Model& model) { model.hold(changed(19), "incident_former"); },
       [](Model& model) {
         for (int n = 21; n < 40; ++n) model.hold(deleted(n), "incident_later");
       }},
  };
}

TEST(ModelLate, ABackupIsJudgedByWhatWasKnownBeforeIt) {
  for (const Late& late : cases()) {
    Model in_order = make_model();
    Model too_late = make_model();
    for (Model* model : {&in_order, &too_late}) {
      learn_days(*model, 0, kDayOfRecord, full);
      learn_days(*model, 0, kDayOfRecord, [](int day) { return incremental(day, 20 + day % 5); });
      late.before(*model);
    }
    late.later(too_late);
    const Verdict expected = in_order.judge(late.record);
    EXPECT_EQ(expected.outcome, late.outcome) << late.what;
    EXPECT_EQ(numbers_of(too_late.judge(late.record)), numbers_of(expected)) << late.what;
    EXPECT_EQ(too_late.incident_of(late.record), in_order.incident_of(late.record)) << late.what;
  }
}

// Of one second, another backup counts: which of them came first is not known.
TEST(ModelLate, WhatIsAsOldCounts) {
  Model model = make_model();
  learn_days(model, 0, kDayOfRecord, full);
  Backup twin = daily(kDayOfRecord);
  twin.unique_key += "_twin";
  EXPECT_EQ(model.judge(deleted(kDayOfRecord)).observations, std::size_t{kDayOfRecord});
  model.learn(twin, kNoCluster);
  EXPECT_EQ(model.judge(deleted(kDayOfRecord)).observations, std::size_t{kDayOfRecord} + 1);
  twin = deleted(kDayOfRecord);
  twin.unique_key += "_accepted";
  model.learn(twin, 1);
  EXPECT_EQ(model.judge(deleted(kDayOfRecord)).outcome, Outcome::kNormal);
  EXPECT_EQ(model.incident_of(deleted(kDayOfRecord)),
            incident_name(deleted(kDayOfRecord).unique_key));
  model.hold(twin, "incident_twin");
  model.forget_false_positive(twin);
  Model other = make_model();
  other.hold(twin, "incident_twin");
  EXPECT_EQ(other.incident_of(deleted(kDayOfRecord)), "incident_twin");
  other.learn(twin, 1);
  other.hold(changed(19), "incident_former");
  EXPECT_EQ(other.incident_of(deleted(kDayOfRecord)),
            incident_name(deleted(kDayOfRecord).unique_key))
      << "a false positive of that second ends the incident";
}

TEST(ModelLate, AForgottenBackupLeavesNothingBehind) {
  Model model = make_model();
  for (const int day : {3, 1, 2}) model.learn(daily(day), kNoCluster);
  for (int day = 10; day < 30; ++day) model.hold(daily(day), "one");
  const Stream& stream = model.stream_of(daily(0).stream);
  EXPECT_EQ(stream.older_held.size(), 12U);
  model.forget(daily(3));
  EXPECT_EQ(model.last_good_of(stream.key).backup_id, daily(2).backup_id);
  EXPECT_EQ(model.judge(daily(9)).observations, 2U);
  model.forget(daily(1));
  EXPECT_EQ(model.last_good_of(stream.key).backup_id, daily(2).backup_id);
  model.forget(daily(2));
  EXPECT_EQ(model.last_good_of(stream.key).backup_id, "");
  model.forget(daily(11));
  model.forget(daily(29));
  EXPECT_EQ(stream.older_held.size(), 11U);
  EXPECT_EQ(stream.held.size(), 7U);
  model.forget(weekly(4));
  EXPECT_EQ(stream.held.size(), 7U);
}

// Late ones too: the former of a forgotten one is the next in time.
TEST(ModelLate, TheLatestGoodBackupsAreKeptByTime) {
  Model model = make_model();
  for (const int day : {5, 9, 1, 7, 3, 8, 8}) model.learn(daily(day), kNoCluster);
  std::vector<std::int64_t> times;
  for (const BackupReference& one : model.stream_of(daily(0).stream).last_good) {
    times.push_back((one.time - kFirstDay) / kDay);
  }
  EXPECT_EQ(times, (std::vector<std::int64_t>{5, 7, 8, 9}));
}

TEST(ModelLate, OlderAnomaliesAreKeptByTimeAndOnce) {
  Model model = make_model();
  for (const int day : {5, 9, 1, 7, 3, 8, 2, 6, 4, 10, 0}) model.hold(daily(day), "one");
  model.hold(daily(1), "other");
  const Stream& stream = model.stream_of(daily(0).stream);
  std::vector<std::string> older;
  for (const Held& one : stream.older_held) older.push_back(one.unique_key + one.incident);
  EXPECT_EQ(older, (std::vector{daily(0).unique_key + "one", daily(1).unique_key + "other",
                                daily(2).unique_key + "one"}));
  model.learn(daily(1), 1);
  EXPECT_EQ(stream.older_held.size(), 2U);
}

// Of backups that stay anomalous, day by day or hour by hour.
TEST(ModelLate, OlderAnomaliesAreKeptAsFarAsABackupMayBeLate) {
  Model model = make_model();
  const Stream& stream = model.stream_of(daily(0).stream);
  for (int day = 0; day < 1000; ++day) {
    model.hold(daily(day), "one");
    EXPECT_LE(stream.older_held.size(), 91U + 64U);
    const int oldest =
        (stream.older_held.empty() ? 0 : (stream.older_held[0].observation.time() - kFirstDay)) /
        kDay;
    // 8 are the latest; a backup that is 91 days late finds 8 more before it.
    EXPECT_LE(oldest, std::max(0, day - 7 - 91 - 8));
  }
  EXPECT_GT(stream.older_held[0].observation.time(), daily(700).time);
}

TEST(ModelLate, OlderAnomaliesAreForgottenOnceThereAreManyOfThem) {
  Model model = make_model();
  const auto hold_until = [&](int end) {
    model.clear();
    for (int day = 0; day < end; ++day) model.hold(daily(day), "one");
    return model.stream_of(daily(0).stream).older_held.size();
  };
  // 64 of them are more than 91 days older than the first of the latest 8.
  EXPECT_EQ(hold_until(91 + 63 + 8), 91U + 63U);
  EXPECT_EQ(hold_until(91 + 64 + 8), 91U + 8U);
}

// One whose time is far ahead does not make the others old.
TEST(ModelLate, AnAnomalyOfTheFutureForgetsNoOthers) {
  Model model = make_model();
  for (int day = 0; day < 100; ++day) model.hold(daily(day), "one");
  model.hold(daily(5000), "one");
  EXPECT_EQ(model.stream_of(daily(0).stream).older_held.size(), 93U);
}

// One of them among those that are older, and others of the same second.
TEST(ModelLate, OlderAnomaliesAreForgottenByTheirKeys) {
  Model model = make_model();
  Backup twin = daily(2);
  for (const char* key : {"a", "b", "c"}) {
    twin.unique_key = key;
    model.hold(twin, key);
  }
  for (int day = 3; day < 11; ++day) model.hold(daily(day), "one");
  const Stream& stream = model.stream_of(daily(0).stream);
  const auto keys = [&] {
    std::set<std::string> found;
    for (const Held& one : stream.older_held) found.insert(one.unique_key);
    return found;
  };
  twin.unique_key = "other";
  model.forget(twin);
  EXPECT_EQ(keys(), (std::set<std::string>{"a", "b", "c"}));
  twin.unique_key = "b";
  model.forget(twin);
  EXPECT_EQ(keys(), (std::set<std::string>{"a", "c"}));
}

// The incident of a late backup is that of the one before it, which may be among the older ones,
// but not its own.
TEST(ModelLate, TheIncidentIsThatOfTheLatestAnomalyBeforeTheBackup) {
  Model model = make_model();
  for (int day = 0; day < 30; ++day) model.hold(daily(day), "incident_" + std::to_string(day));
  Backup late = daily(10);
  EXPECT_EQ(model.incident_of(late), "incident_9") << "its own";
  late.unique_key = "late";
  EXPECT_EQ(model.incident_of(late), "incident_10");
  EXPECT_EQ(model.incident_of(daily(22)), "incident_21") << "the first of the latest";
  EXPECT_EQ(model.incident_of(daily(29)), "incident_28");
  EXPECT_EQ(model.incident_of(daily(0)), incident_name(daily(0).unique_key));
}

}  // namespace
}  // namespace corvane::detect
