#include "companions/alert/incident/endings.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace corvane::alert {
namespace {

StreamKey stream_of(const std::string& client) {
  return {client, "nightly", "STANDARD", "FULL", "daily", "FS", "disk"};
}

KnownIncident incident_of(const std::string& client, std::int64_t last) {
  KnownIncident incident;
  incident.stream = stream_of(client);
  incident.has_stream = true;
  incident.last_time = last;
  return incident;
}

TEST(Endings, TakeTheFirstUsualBackupAfterTheLastRecord) {
  const std::vector<KnownIncident> open{incident_of("a", 100), incident_of("b", 100)};
  Endings endings(open);
  endings.see(stream_of("a"), 100);
  EXPECT_EQ(endings.until(0), 0);
  endings.see(stream_of("a"), 300);
  endings.see(stream_of("a"), 200);
  endings.see(stream_of("a"), 99);
  endings.see(stream_of("a"), 400);
  EXPECT_EQ(endings.until(0), 200);
  EXPECT_EQ(endings.until(1), 0);
}

TEST(Endings, AreOfStreamsThatMatch) {
  StreamKey unknown = stream_of("a");
  unknown.app_type = "NONE";
  unknown.destination = "NA";
  StreamKey other = stream_of("a");
  other.destination = "tape";
  const std::vector<KnownIncident> open{incident_of("a", 100)};
  Endings endings(open);
  endings.see(other, 200);
  endings.see(stream_of("A"), 200);
  EXPECT_EQ(endings.until(0), 0);
  endings.see(unknown, 300);
  EXPECT_EQ(endings.until(0), 300);
}

TEST(Endings, OneBackupEndsAllIncidentsOfItsStream) {
  const std::vector<KnownIncident> open{incident_of("a", 100), incident_of("a", 500)};
  Endings endings(open);
  endings.see(stream_of("a"), 300);
  EXPECT_EQ(endings.until(0), 300);
  EXPECT_EQ(endings.until(1), 0);
  endings.see(stream_of("a"), 600);
  EXPECT_EQ(endings.until(0), 300);
  EXPECT_EQ(endings.until(1), 600);
}

TEST(Endings, KnowTheUsualBackupThatARecordNamed) {
  KnownIncident late = incident_of("a", 100);
  late.until = 200;
  KnownIncident passed = incident_of("b", 300);
  passed.until = 200;
  const std::vector<KnownIncident> open{late, passed};
  Endings endings(open);
  EXPECT_EQ(endings.until(0), 200);
  EXPECT_EQ(endings.until(1), 0);
  endings.see(stream_of("a"), 250);
  EXPECT_EQ(endings.until(0), 200);
}

TEST(Endings, FindNamesThatAreNoUtf8AsTheFindingSpellsThem) {
  const std::vector<KnownIncident> open{incident_of("a\xEF\xBF\xBD", 100)};
  Endings endings(open);
  endings.see(stream_of("a\xFF"), 200);
  EXPECT_EQ(endings.until(0), 200);
}

TEST(Endings, NeedTheHistorySinceTheEarliestLastRecord) {
  EXPECT_FALSE(Endings({}).since());
  KnownIncident foreign = incident_of("", 50);
  foreign.has_stream = false;
  const std::vector<KnownIncident> without{foreign};
  EXPECT_FALSE(Endings(without).since());
  const std::vector<KnownIncident> open{incident_of("a", 300), incident_of("b", 200), foreign};
  Endings endings(open);
  EXPECT_EQ(endings.since(), 200);
  endings.see(foreign.stream, 400);
  EXPECT_EQ(endings.until(2), 0);
}

TEST(Endings, ABackupAtTheTimeOfTheLastRecordIsNoEnd) {
  const std::vector<KnownIncident> open{incident_of("a", 100)};
  Endings endings(open);
  endings.see(stream_of("a"), 101);
  EXPECT_EQ(endings.until(0), 101);
  EXPECT_THROW(endings.until(1), std::out_of_range);
}

}  // namespace
}  // namespace corvane::alert
