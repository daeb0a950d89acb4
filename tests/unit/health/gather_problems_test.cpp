// What is wrong with the programs, the looks and the gathers.
#include "health/problems.h"
#include "platform/program_names.h"
#include "tests/unit/health/problem_states.h"

namespace corvane::health {
namespace {

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
       {"within three long passes", pass(902, 301), "OK"},
       {"after three long passes", pass(903, 301), hangs + "its last pass was 15 min ago"},
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
      "an interval that it has said",
      [](Health& h) {
        h.ledger.interval_minutes = 15;
        h.configured.interval_minutes = 1440;
        h.configured.changed = kNow;
      },
      true);
  expect(
      "a longer interval that it has said",
      [](Health& h) {
        h.ledger.interval_minutes = 16;
        h.gather.log.last_end = h.gather.last;
      },
      false);
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
       {"a longer interval that it has said",
        with(3 * kHour, [](Health& h) { h.ledger.interval_minutes = 16; }), late},
       {"a shorter interval that it has said",
        with(3 * kHour,
             [](Health& h) {
               h.ledger.interval_minutes = 15;
               h.configured.interval_minutes = 30;
             }),
        stalled},
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

TEST(Problems, OfTheLooks) {
  const auto look = [](std::int64_t ago) {
    return [=](Health& health) { health.ledger.last_look = kNow - ago; };
  };
  expect_each(
      {{"14:59", look(15 * kMinute - 1), "OK"},
       {"15", look(15 * kMinute),
        "critical ledger_stale: the last look of cvanomalyheal was at 2023-11-14 21:58 UTC"},
       {"15, of a service that has just begun",
        [&](Health& h) {
          look(15 * kMinute)(h);
          h.daemons[0].since = kNow - 10 * kMinute + 1;
        },
        "warning ledger_stale: the last look of cvanomalyheal was at 2023-11-14 21:58 UTC"},
       {"15, of a service that has been running for 10 min",
        [&](Health& h) {
          look(15 * kMinute)(h);
          h.daemons[0].since = kNow - 10 * kMinute;
        },
        "critical ledger_stale: the last look of cvanomalyheal was at 2023-11-14 21:58 UTC"},
       {"future, of a service that has just begun",
        [&](Health& h) {
          look(-61)(h);
          h.daemons[0].since = kNow;
        },
        "critical ledger_stale: the last look of cvanomalyheal is dated 2023-11-14 22:14 UTC, in "
        "the future"},
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
               {"interval that the service said",
                [&](Health& h) {
                  open(kHour, 15)(h);
                  h.ledger.interval_minutes = 16;
                },
                "warning" + slow + "60 min"},
               {"interval that the service has not read yet",
                [&](Health& h) {
                  open(kHour, 16)(h);
                  h.ledger.interval_minutes = 15;
                },
                "critical" + slow + "60 min"},
               {"5:59:59", open(6 * kHour - 1, 1440), "warning" + slow + "5 h 59 min"},
               {"6 h", open(6 * kHour, 1440), "critical" + slow + "6 h"},
               {"future", [](Health& h) { h.gather.last = kNow + 61; },
                "critical marker_in_future: the last gather is dated 2023-11-14 22:14 UTC, in the "
                "future: the service does not gather before then"},
               {"skew", [](Health& h) { h.gather.last = kNow + 60; }, "OK"}});
}

// Only live gathers say how long they took.
TEST(Problems, AHistoryThatHasJustEndedIsNoLateGather) {
  Health health = good();
  health.gather.last = kNow - kDay;
  health.gather.log = {};
  health.gather.next = kNow + 15 * kMinute;
  health.ledger.last_end = kNow - 60;
  EXPECT_EQ(whole(health), "OK");
  health.ledger.last_end = kNow + 61;  // of a wrong clock
  EXPECT_NE(whole(health), "OK");
  health.ledger.last_end = kNow - 60;
  health.gather.log.last_end = kNow - kDay + 60;
  EXPECT_NE(whole(health), "OK");
}

TEST(Problems, AGatherThatBeganInTheFutureIsSlow) {
  Health health = good();
  health.ledger.gathers.open_since = kNow + 61;
  EXPECT_EQ(whole(health),
            "critical gather_slow: a gather has been running since 2023-11-14 22:14 UTC, in the "
            "future");
  health.ledger.gathers.open_since = kNow + 60;
  EXPECT_EQ(whole(health), "OK");
}

}  // namespace
}  // namespace corvane::health
