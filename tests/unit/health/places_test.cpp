#include "health/places.h"

#include <gtest/gtest.h>

namespace corvane::health {
namespace {

TEST(Places, TheOtherDatabasesAreBesideTheAnomalyDatabase) {
  const Places places = places_of("/d/a.db", "/c.conf", "/logs");
  EXPECT_EQ(places.database, "/d/a.db");
  EXPECT_EQ(places.config, "/c.conf");
  EXPECT_EQ(places.logs, "/logs");
  EXPECT_EQ(places.alert_database, "/d/a_Alerts.db");
  EXPECT_EQ(places.ledger, "/d/a_Coverage.db");
  EXPECT_EQ(places.detection_database, "/d/a_Detection.db");
  EXPECT_EQ(places.log_file("cvx"), "/logs/cvx");
}

TEST(Places, OfADatabaseInTheCurrentDirectory) {
  const Places places = places_of("b.db", "", "");
  EXPECT_EQ(places.alert_database, "./b_Alerts.db");
  EXPECT_EQ(places.ledger, "./b_Coverage.db");
  EXPECT_EQ(places.detection_database, "b_Detection.db");
}

}  // namespace
}  // namespace corvane::health
