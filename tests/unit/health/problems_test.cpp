#include "health/problems.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/unit/health/healthy.h"

namespace corvane::health {
namespace {

TEST(Problems, OfAHealthyInstallationThereAreNone) { EXPECT_EQ(said_of(good()), "OK"); }

// One state, everything else being well: the only problem that there is.
struct State {
  const char* what;
  std::function<void(Health&)> make;
  std::string said;  // "LEVEL NAME: WORDS", or "OK"
};

std::string whole(const Health& health) {
  std::string said;
  for (const Problem& problem : problems_of(health)) {
    if (!said.empty()) said += "; ";
    said += std::string(name_of(problem.level)) + " " + problem.name + ": " + problem.words;
  }
  return said.empty() ? "OK" : said;
}

void expect_each(const std::vector<State>& states) {
  for (const State& state : states) {
    Health health = good();
    state.make(health);
    EXPECT_EQ(whole(health), state.said) << state.what;
  }
}

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

TEST(Problems, OfAProgramThatHangs) {
  const std::string hangs = "critical program_hung: cvanomalydetect hangs: ";
  const auto pass = [](std::int64_t ago, std::int64_t seconds = 0) {
    return [=](Health& health) {
      health.daemons[1].last_pass = kNow - ago;
      health.daemons[1].pass_seconds = seconds;
    };
  };
  expect_each(
      {{"14:59", pass(15 * kMinute - 1), "OK"},
       {"15", pass(15 * kMinute), hangs + "its last pass was 15 min ago"},
       {"three short passes", pass(15 * kMinute, 300), hangs + "its last pass was 15 min ago"},
       {"within three long passes", pass(3 * 301 - 1, 301), "OK"},
       {"after three long passes", pass(3 * 301, 301), hangs + "its last pass was 15 min ago"},
       {"never", pass(kNow), hangs + "no pass is noted"},
       {"just started",
        [](Health& h) {
          h.daemons[1].last_pass = 0;
          h.daemons[1].since = kNow - 15 * kMinute + 1;
        },
        "OK"},
       {"not wanted",
        [](Health& h) {
          h.daemons[1].last_pass = 0;
          h.daemons[1].is_wanted = false;
        },
        "OK"},
       {"the alerts", [](Health& h) { h.daemons[2].last_pass = kNow - 25 * kHour; },
        "critical program_hung: cvanomalyalert hangs: its last pass was 25 h ago"},
       {"skew", pass(-60), "OK"},
       {"a pass in the future", pass(-61),
        hangs + "its last pass is dated 2023-11-14 22:14 UTC, in the future"},
       {"a pass in the future at the start",
        [](Health& h) {
          h.daemons[1].last_pass = kNow + kDay;
          h.daemons[1].since = kNow - 15 * kMinute + 1;
        },
        "OK"}});
}

TEST(Problems, OfAProgramThatIsSuspended) {
  for (std::size_t i = 0; i < 3; ++i) {
    Health health = good();
    health.daemons.at(i).is_stopped = true;
    health.daemons.at(i).since = kNow;
    EXPECT_EQ(whole(health), "critical program_hung: " + health.daemons[i].name +
                                 " is suspended: a signal or a debugger has stopped it");
  }
}

// A gather that was due 20 minutes ago, and a look of 5 minutes ago.
Health overdue() {
  Health health = good();
  health.gather.last = kNow - 35 * kMinute;
  health.gather.next = kNow - 20 * kMinute;
  health.ledger.last_look = kNow - 5 * kMinute;
  return health;
}

TEST(Problems, OfAServiceThatHangs) {
  const std::string hung =
      "critical program_hung: cvanomalymgmt hangs: the gather that was due at 2023-11-14 21:53 UTC "
      "has not begun";
  const auto expect = [&](const char* what, const std::function<void(Health&)>& make, bool hangs) {
    Health health = overdue();
    make(health);
    EXPECT_EQ(whole(health), hangs ? hung : "OK") << what;
  };
  expect(
      "15 min", [](Health&) {}, true);
  expect(
      "14:59", [](Health& h) { --h.ledger.last_look; }, false);
  expect(
      "a gather is open", [](Health& h) { h.ledger.gathers.open_since = kNow - 400; }, false);
  expect(
      "a former interval", [](Health& h) { h.configured.changed = h.gather.last; }, false);
  expect(
      "a known interval", [](Health& h) { h.configured.changed = h.gather.last - 1; }, true);
  expect(
      "the interval is the setting",
      [](Health& h) {
        h.configured.interval_minutes = 16;
        h.configured.changed = h.gather.last - 1;
      },
      false);
  expect(
      "its time could not be stored", [](Health& h) { h.gather.log.last_end = h.gather.last + 1; },
      false);
  expect(
      "stored at once", [](Health& h) { h.gather.log.last_end = h.gather.last; }, true);
  expect(
      "ended in the future", [](Health& h) { h.gather.log.last_end = kNow + 61; }, true);
  expect(
      "unknown when", [](Health& h) { h.gather.next = 0; }, false);
  Health health = overdue();
  health.ledger.last_look = kNow + 61;  // of a wrong clock, which may have been so for the gather
  EXPECT_TRUE(
      whole(health).starts_with("critical ledger_stale: the last look of cvanomalyheal is dated"));
  EXPECT_EQ(problems_of(health).size(), 1U);
  health.ledger.last_look = kNow + 60;
  EXPECT_EQ(whole(health), hung);
}

TEST(Problems, OfAHistoryThatNothingGathers) {
  const std::string stalled =
      "critical history_not_gathered: the history has not been gathered yet, and nothing gathers "
      "it";
  const std::string late = "warning history_not_gathered: the history has not been gathered yet";
  const auto begun = [](std::int64_t ago) {  // the first gather was due then
    return [=](Health& h) {
      h.gather.last = 0;
      h.gather.next = 1;
      h.daemons[0].since = kNow - 60 - 15 * kMinute - ago;
    };
  };
  const auto with = [&](std::int64_t ago, const std::function<void(Health&)>& more) {
    return [=](Health& h) {
      begun(ago)(h);
      more(h);
    };
  };
  expect_each(
      {{"2:59:59", begun(3 * kHour - 1), late},
       {"3", begun(3 * kHour), stalled},
       {"a longer interval", with(3 * kHour, [](Health& h) { h.configured.interval_minutes = 16; }),
        late},
       {"a slice is open", with(kDay, [](Health& h) { h.ledger.gathers.open_since = kNow - 90; }),
        late},
       {"a slice has ended",
        with(kDay, [](Health& h) { h.ledger.last_end = h.ledger.last_look - 3 * kHour + 1; }),
        late},
       {"a slice has ended long ago",
        with(kDay, [](Health& h) { h.ledger.last_end = h.ledger.last_look - 3 * kHour; }), stalled},
       {"a slice in the future", with(kDay, [](Health& h) { h.ledger.last_end = kNow + 61; }),
        stalled},
       {"the skew of a slice", with(kDay, [](Health& h) { h.ledger.last_end = kNow + 60; }), late},
       {"no service", with(kDay, [](Health& h) { h.daemons[0].process = 0; }),
        "critical program_absent: cvanomalymgmt is not running"},
       {"no database", with(kDay, [](Health& h) { h.has_database = false; }), "OK"}});
  Health health = good();
  with(kDay, [](Health& h) { h.ledger.last_look = kNow + 61; })(health);
  EXPECT_EQ(problems_of(health).back().words, "the history has not been gathered yet");
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

TEST(Problems, OfTheLooks) {
  const auto look = [](std::int64_t ago) {
    return [=](Health& health) { health.ledger.last_look = kNow - ago; };
  };
  expect_each(
      {{"14:59", look(15 * kMinute - 1), "OK"},
       {"15", look(15 * kMinute),
        "critical ledger_stale: the last look of cvanomalyheal was at 2023-11-14 21:58 UTC"},
       {"skew", look(-60), "OK"},
       {"future", look(-61),
        "critical ledger_stale: the last look of cvanomalyheal is dated 2023-11-14 22:14 UTC, in "
        "the future"},
       {"never, for an hour", look(kNow), "critical never_looked: cvanomalyheal has never run"},
       {"never, for less",
        [](Health& h) {
          h.ledger.last_look = 0;
          h.daemons[0].since = kNow - kHour + 1;
        },
        "warning never_looked: cvanomalyheal has never run"},
       {"never, at an hour",
        [](Health& h) {
          h.ledger.last_look = 0;
          h.daemons[0].since = kNow - kHour;
        },
        "critical never_looked: cvanomalyheal has never run"},
       {"switched off",
        [&](Health& h) {
          look(kDay)(h);
          h.configured.service = false;
          h.daemons[0].process = 0;
          h.daemons[0].is_wanted = false;
        },
        "warning service_off: backup anomaly detection is disabled in the configuration"},
       {"switched off and running",
        [&](Health& h) {
          look(15 * kMinute)(h);
          h.configured.service = false;
        },
        "critical ledger_stale: the last look of cvanomalyheal was at 2023-11-14 21:58 UTC; "
        "warning "
        "service_off: backup anomaly detection is disabled in the configuration"},
       {"absent",
        [&](Health& h) {
          look(15 * kMinute)(h);
          h.daemons[0].process = 0;
        },
        "critical program_absent: cvanomalymgmt is not running; critical ledger_stale: "
        "the last look of cvanomalyheal was at 2023-11-14 21:58 UTC"},
       {"unreadable",
        [](Health& h) {
          h.ledger = {};
          h.ledger.trouble = "/l is damaged or is not a database.";
        },
        "critical ledger_unreadable: /l is damaged or is not a database"}});
}

TEST(Problems, OfTheGathers) {
  const auto fail = [](std::int64_t times, const char* reason) {
    return [=](Health& health) {
      health.ledger.gathers.failed_in_a_row = times;
      health.ledger.gathers.first_failed = kNow - 3600;
      health.ledger.gathers.reason = reason;
    };
  };
  const auto open = [](std::int64_t seconds, int interval = 15) {
    return [=](Health& health) {
      health.configured.interval_minutes = interval;
      health.ledger.gathers.open_since = health.ledger.last_look - seconds;
    };
  };
  const std::string failed = " gathers failed in a row since 2023-11-14 21:13 UTC";
  const std::string slow = " gather_slow: a gather has been running for ";
  expect_each({{"2", fail(2, "x"), "OK"},
               {"3", fail(3, "HTTP 503."), "critical gathers_failed: 3" + failed + ": HTTP 503"},
               {"4", fail(4, ""), "critical gathers_failed: 4" + failed},
               {"not wanted",
                [&](Health& h) {
                  fail(9, "x")(h);
                  open(kDay)(h);
                  h.gather.last = 1;
                  h.configured.service = h.configured.detection = h.configured.alerts = false;
                },
                "warning service_off: backup anomaly detection is disabled in the configuration"},
               {"9:59", open(599), "OK"},
               {"10", open(600), "warning" + slow + "10 min"},
               {"59:59", open(kHour - 1), "warning" + slow + "59 min"},
               {"60", open(kHour), "critical" + slow + "60 min"},
               {"longer interval", open(kHour, 16), "warning" + slow + "60 min"},
               {"5:59:59", open(6 * kHour - 1, 1440), "warning" + slow + "5 h 59 min"},
               {"6 h", open(6 * kHour, 1440), "critical" + slow + "6 h"},
               {"future", [](Health& h) { h.gather.last = kNow + 61; },
                "critical marker_in_future: the last gather is dated 2023-11-14 22:14 UTC, in the "
                "future: the service does not gather before then"},
               {"skew", [](Health& h) { h.gather.last = kNow + 60; }, "OK"}});
}

TEST(Problems, OfWhatIsNotGathered) {
  expect_each(
      {{"a young hole", [](Health& h) { h.ledger.holes = {hole(1, 60, kNow - kHour + 1)}; }, "OK"},
       {"holes",
        [](Health& h) {
          h.ledger.holes = {hole(kNow - 9000, kNow - 8941, kNow - 10, "HTTP 500."),
                            hole(kNow - 7000, kNow - 6941, kNow - kHour)};
        },
        "critical holes: 2 min were not gathered, the first from 2023-11-14 19:43 UTC: HTTP 500"},
       {"a hole without a reason",
        [](Health& h) { h.ledger.holes = {hole(kNow - 9000, kNow - 8941, kNow - kHour)}; },
        "critical holes: 60 s were not gathered, the first from 2023-11-14 19:43 UTC"},
       {"found within the skew", [](Health& h) { h.ledger.holes = {hole(1, 60, kNow + 60)}; },
        "OK"},
       {"found in the future", [](Health& h) { h.ledger.holes = {hole(1, 60, kNow + 61)}; },
        "critical holes: 60 s were not gathered, the first from 1970-01-01 00:00 UTC"},
       {"missing since the future",
        [](Health& h) {
          h.ledger.missing = {{"k", {1, 2}, kNow + 61, 0, 0}};
        },
        "critical missing_backups: 1 backup that the master server has is missing from the "
        "database"},
       {"a given-up backup", [](Health& h) { h.ledger.given_up = 1; },
        "warning given_up_backups: 1 missing backup was given up"},
       {"given-up backups", [](Health& h) { h.ledger.given_up = 2; },
        "warning given_up_backups: 2 missing backups were given up"},
       {"just not compared", [](Health& h) { h.ledger.unaudited_since = kNow - kHour + 1; }, "OK"},
       {"not compared",
        [](Health& h) {
          h.ledger.unaudited_since = kNow - kHour;
          h.ledger.audit_reason = "HTTP 503.";
        },
        "critical not_compared: the backups in the database have not been compared with those of "
        "the master server for 60 min: HTTP 503"},
       {"not compared since the future", [](Health& h) { h.ledger.unaudited_since = kNow + 61; },
        "critical not_compared: the backups in the database have not been compared with those of "
        "the master server since 2023-11-14 22:14 UTC, in the future"},
       {"not compared, and no healing",
        [](Health& h) {
          h.ledger.unaudited_since = kNow - kHour;
          h.configured.heals = false;
        },
        "warning healing_off: healing is disabled in the configuration"},
       {"just missing",
        [](Health& h) {
          h.ledger.missing = {{"k", {1, 2}, kNow - kHour + 1, 0, 0}};
        },
        "OK"},
       {"missing",
        [](Health& h) {
          h.ledger.missing = {{"k", {1, 2}, kNow, 0, 0}, {"l", {1, 2}, kNow - kHour, 0, 0}};
        },
        "critical missing_backups: 2 backups that the master server has are missing from the "
        "database"},
       {"one missing",
        [](Health& h) {
          h.ledger.missing = {{"k", {1, 2}, kNow - kHour, 0, 0}};
        },
        "critical missing_backups: 1 backup that the master server has is missing from the "
        "database"},
       {"lost",
        [](Health& h) {
          h.ledger.lost = {{kNow - kDay, kNow - kHour}};
        },
        "warning lost_ranges: 1 lost range, from 2023-11-13 22:13 UTC"},
       {"twice lost",
        [](Health& h) {
          h.ledger.lost = {{kNow - kDay, kNow - kHour}, {2, 3}};
        },
        "warning lost_ranges: 2 lost ranges, the first from 2023-11-13 22:13 UTC"}});
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
