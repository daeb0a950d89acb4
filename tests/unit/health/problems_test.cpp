#include "health/problems.h"

#include "tests/unit/health/problem_states.h"

namespace corvane::health {
namespace {

TEST(Problems, OfAHealthyInstallationThereAreNone) { EXPECT_EQ(said_of(good()), "OK"); }

coverage::Hole hole(std::int64_t begin, std::int64_t end, std::int64_t found,
                    const std::string& reason = "") {
  return {{begin, end}, found, 0, 0, reason};
}

TEST(Problems, OfTheConfiguration) {
  const std::string deletes =
      ": each purge with this value deletes all records except false positives";
  const auto purge = [](const char* text, int months) {
    return [=](Health& health) {
      health.configured.purge = text;
      health.configured.purge_months = months;
    };
  };
  expect_each(
      {{"malformed", [](Health& h) { h.configured.trouble = "/c is malformed in line 3."; },
        "critical configuration: /c is malformed in line 3: the detection, the alerts and the "
        "healing are off"},
       {"gone",
        [](Health& h) {
          h.configured.has_file = false;
          h.had_companions = true;
        },
        "critical configuration: the configuration file is missing: every setting has its default"},
       {"never there", [](Health& h) { h.configured.has_file = false; }, "OK"},
       {"there", [](Health& h) { h.had_companions = true; }, "OK"},
       {"purge 0", purge("0", 0),
        "critical purge_setting: PURGE_DATA_INTERVAL_IN_MONTHS is 0" + deletes},
       {"purge -1", purge("-1", -1),
        "critical purge_setting: PURGE_DATA_INTERVAL_IN_MONTHS is -1" + deletes},
       {"purge twelve", purge("twelve", 0),
        "critical purge_setting: PURGE_DATA_INTERVAL_IN_MONTHS is twelve" + deletes},
       {"purge 1", purge("1", 1), "OK"},
       {"purge 0 of a service that is off",
        [&](Health& h) {
          purge("0", 0)(h);
          h.configured.service = h.configured.detection = h.configured.alerts = false;
          h.daemons[0] = {kManagementProgram, false};
        },
        "warning purge_setting: PURGE_DATA_INTERVAL_IN_MONTHS is 0" + deletes +
            "; warning service_off: backup anomaly detection is disabled in the configuration"},
       {"no service",
        [](Health& h) {
          h.configured.service = h.configured.detection = h.configured.alerts = false;
        },
        "warning service_off: backup anomaly detection is disabled in the configuration"},
       {"no detection", [](Health& h) { h.configured.detection = h.configured.alerts = false; },
        "warning detection_off: the detection is disabled in the configuration"},
       {"no alerts", [](Health& h) { h.configured.alerts = false; },
        "warning alerts_off: alerts are disabled in the configuration"}});
}

TEST(Problems, OfAPurgeByAFormerSetting) {
  const auto purged = [](std::int64_t kept, int months = 12) {
    return [=](Health& h) {
      h.configured.purge_months = months;
      h.ledger.purged_at = kNow - 300;
      h.ledger.purged_before = h.ledger.purged_at - kept;
    };
  };
  const auto with = [&](std::int64_t kept, const std::function<void(Health&)>& more) {
    return [=](Health& h) {
      purged(kept)(h);
      more(h);
    };
  };
  const auto in_effect = [](const char* before) {
    return std::string(
               "critical purge_in_effect: the running service uses a former "
               "PURGE_DATA_INTERVAL_IN_MONTHS and deletes records before ") +
           before + " until it is restarted";
  };
  const std::int64_t year = 360 * kDay;
  const std::int64_t month = 30 * kDay;
  expect_each(
      {{"0", purged(0), in_effect("2023-11-14 22:08 UTC")},
       {"as configured", purged(year), "OK"},
       {"more is kept", purged(year, 1), "OK"},
       {"a day less", purged(year - kDay), "OK"},
       {"more than a day less", purged(year - kDay - 1), in_effect("2022-11-20 22:08 UTC")},
       {"a month", purged(month, 1), "OK"},
       {"28 days", purged(28 * kDay, 1), in_effect("2023-10-17 22:08 UTC")},
       {"29 days", purged(29 * kDay, 1), "OK"},
       {"unknown", with(0, [](Health& h) { h.ledger.purged_at = 0; }), "OK"},
       {"restarted", with(0, [](Health& h) { h.daemons[0].since = h.ledger.purged_at + 1; }), "OK"},
       {"purged at its start", with(0, [](Health& h) { h.daemons[0].since = h.ledger.purged_at; }),
        in_effect("2023-11-14 22:08 UTC")},
       {"not running",
        with(0,
             [](Health& h) {
               h.daemons[0].process = 0;
               h.daemons[0].since = 0;
             }),
        "critical program_absent: cvanomalymgmt is not running"}});
  Health health = good();
  purged(0, 0)(health);  // the setting itself is wrong: a restart changes nothing
  health.configured.purge = "0";
  ASSERT_EQ(problems_of(health).size(), 1U);
  EXPECT_EQ(problems_of(health)[0].name, "purge_setting");
}

TEST(Problems, OfTheDatabaseFile) {
  expect_each(
      {{"replaced", [](Health& h) { h.service_database = OpenFile::kNotOpen; },
        "critical database_replaced: the database was replaced: the running service "
        "writes to another file"},
       {"unknown", [](Health& h) { h.service_database = OpenFile::kUnknown; },
        "warning database_unknown: it is not known whether the running service has this "
        "database open: ask as root or as its account"},
       {"unknown at the start",
        [](Health& h) {
          h.service_database = OpenFile::kUnknown;
          h.daemons[0].since = kNow - 59;
        },
        "OK"},
       {"unknown without a database",
        [](Health& h) {
          h.service_database = OpenFile::kUnknown;
          h.has_database = false;
        },
        "OK"},
       {"starting",
        [](Health& h) {
          h.service_database = OpenFile::kNotOpen;
          h.daemons[0].since = kNow - 59;
        },
        "OK"},
       {"started",
        [](Health& h) {
          h.service_database = OpenFile::kNotOpen;
          h.daemons[0].since = kNow - 60;
        },
        "critical database_replaced: the database was replaced: the running service "
        "writes to another file"},
       {"open",
        [](Health& h) {
          h.open_to_others = {"/d-wal", "/d-shm"};
        },
        "warning database_open: users other than the service account can read or write /d-wal"}});
}

TEST(Problems, OfTheDetectionsDatabase) {
  Health health = good();
  health.detection_trouble = "It is damaged.";
  EXPECT_EQ(whole(health), "critical detection_unreadable: It is damaged");
  health.configured.detection = health.configured.alerts = false;
  EXPECT_EQ(whole(health), "warning detection_off: the detection is disabled in the configuration");
}

// See gaps_test.cpp.
TEST(Problems, OfWhatIsNotGathered) {
  expect_each(
      {{"holes", [](Health& h) { h.ledger.holes = {hole(kNow - 9000, kNow - 8941, kNow - kHour)}; },
        "critical holes: 60 s are still to be gathered again, the first from 2023-11-14 "
        "19:43 UTC"},
       {"lost",
        [](Health& h) {
          h.ledger.lost = {{kNow - kDay, kNow - kHour}};
        },
        "warning lost_ranges: 1 lost range, from 2023-11-13 22:13 UTC"},
       {"no healing", [](Health& h) { h.configured.heals = false; },
        "warning healing_off: healing is disabled in the configuration"}});
}

TEST(Problems, OfWhatIsNotJudgedOrNotified) {
  const auto unjudged = [](std::int64_t ago, std::int64_t count = 2) {
    return [=](Health& health) {
      health.backlog.unjudged = count;
      health.ledger.unjudged_since = kNow - ago;
    };
  };
  const auto pending = [](std::int64_t ago, std::int64_t criticals) {
    return [=](Health& health) {
      health.backlog.oldest_unprocessed = kNow - ago;
      if (criticals > 0) health.backlog.oldest_critical = kNow - ago;
      health.backlog.criticals = criticals;
    };
  };
  const std::string nobody = "critical critical_not_notified: nobody was notified of ";
  const std::string undelivered =
      "critical anomalies_unprocessed: an anomaly has not been delivered on every channel ";
  const std::string old = undelivered + "for ";
  expect_each(
      {{"59:59", unjudged(kHour - 1), "OK"},
       {"1 h", unjudged(kHour),
        "critical rows_unjudged: 2 backups are waiting for the detection, the first for 60 min"},
       {"one", unjudged(kHour, 1),
        "critical rows_unjudged: 1 backup is waiting for the detection, the first for 60 min"},
       {"judged since", unjudged(kHour, 0), "OK"},
       {"unknown since when", unjudged(kNow), "OK"},
       {"no detection",
        [&](Health& h) {
          unjudged(kDay)(h);
          h.configured.detection = h.configured.alerts = false;
        },
        "warning detection_off: the detection is disabled in the configuration"},
       {"14:59", pending(15 * kMinute - 1, 1), "OK"},
       {"15", pending(15 * kMinute, 1), nobody + "1 critical anomaly for 15 min"},
       {"not critical", pending(kHour - 1, 0), "OK"},
       {"an hour", pending(kHour, 0), old + "60 min"},
       {"both", pending(kHour, 2), nobody + "2 critical anomalies for 60 min; " + old + "60 min"},
       {"no alerts",
        [&](Health& h) {
          pending(kDay, 3)(h);
          h.configured.alerts = false;
        },
        nobody + "3 critical anomalies for 24 h; warning alerts_off: alerts are disabled in the "
                 "configuration"},
       {"no alerts, and none critical",
        [&](Health& h) {
          pending(kDay, 0)(h);
          h.configured.alerts = false;
        },
        "warning alerts_off: alerts are disabled in the configuration"},
       {"skew", pending(-60, 1), "OK"},
       {"future", pending(-61, 1),
        nobody + "1 critical anomaly since 2023-11-14 22:14 UTC, in the future; " + undelivered +
            "since 2023-11-14 22:14 UTC, in the future"},
       {"unjudged since the future", unjudged(-61),
        "critical rows_unjudged: 2 backups are waiting for the detection, the first since "
        "2023-11-14 22:14 UTC, in the future"}});
}

TEST(Problems, OfOneLevelAreInTheOrderOfWhatDependsOnWhat) {
  Health health = good();
  health.configured.purge_months = 0;
  health.daemons[0].process = 0;
  health.daemons[0].since = 0;
  health.daemons[1].last_pass = 0;
  health.ledger.last_look = 1;
  health.gather.last = kNow + kDay;
  health.ledger.gathers.failed_in_a_row = 3;
  health.ledger.holes = {hole(1, 2, 3)};
  health.ledger.missing = {{"k", {1, 2}, 3, 0, 0}};
  health.ledger.unjudged_since = 1;
  health.backlog = {1, 2, 3, 4};
  health.alerts.channels.resize(1);
  health.alerts.channels[0].given_up = 1;
  health.disk = {100, 0};
  std::string names;
  for (const Problem& problem : problems_of(health)) names += problem.name + " ";
  EXPECT_EQ(names,
            "purge_setting program_absent program_hung ledger_stale marker_in_future "
            "gathers_failed holes missing_backups rows_unjudged critical_not_notified "
            "anomalies_unprocessed dead_letters disk ");
  health = good();
  health.service_database = OpenFile::kNotOpen;
  health.ledger.last_look = 0;
  EXPECT_EQ(problems_of(health)[0].name, "database_replaced");
  EXPECT_EQ(problems_of(health)[1].name, "never_looked");
}

TEST(Problems, LevelsHaveNames) {
  EXPECT_STREQ(name_of(Level::kWarning), "warning");
  EXPECT_STREQ(name_of(Level::kCritical), "critical");
}

}  // namespace
}  // namespace corvane::health
