#include "operator_tool/ask/told.h"

#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

class ToldTest : public OperatorWorld {
 protected:
  // "channel kind state time reason" of each message.
  std::vector<std::string> told(const std::string& incident) const {
    std::vector<std::string> lines;
    for (const alert::ToldMessage& message : read_told(with_paths(), incident)) {
      lines.push_back(message.channel + " " + alert::name_of(message.kind) + " " +
                      alert::words_for(message.state) + " " + std::to_string(message.created) +
                      " " + message.reason);
    }
    return lines;
  }
};

TEST_F(ToldTest, OfAnIncidentInTheOrderOfItsMessages) {
  {
    alert::StateDatabase state(with_paths().places().alert_database);
    for (const char* statement :
         {"INSERT INTO incident VALUES (1, 'incident_a', 'a', 'a', 'c', 'p', 't', 's', 'n', 'x', "
          "'d', 1, 1, 1, 3, '', 1, 0, 1, 1, 0)",
          "INSERT INTO incident VALUES (2, 'incident_b', 'b', 'b', 'c', 'p', 't', 's', 'n', 'x', "
          "'d', 1, 1, 1, 3, '', 1, 0, 1, 1, 0)"}) {
      state.execute(statement);
    }
    state.execute(alert::typed_sql("INSERT INTO delivery VALUES "
                                   "(8, 'mail', {rise}, 1, 3, {waiting}, 80, 0, 0, 1, 0, 'no', 0), "
                                   "(7, 'web', {begin}, 1, 3, {delivered}, 70, 0, 0, 1, 0, '', 0), "
                                   "(9, 'web', {begin}, 2, 3, {delivered}, 90, 0, 0, 1, 0, '', 0)")
                      .c_str());
  }
  EXPECT_EQ(told("incident_a").size(), 2U);
  ASSERT_EQ(told("incident_a").size(), 2U);
  EXPECT_TRUE(told("incident_a")[0].starts_with("web begin ")) << told("incident_a")[0];
  EXPECT_TRUE(told("incident_a")[0].ends_with(" 70 "));
  EXPECT_TRUE(told("incident_a")[1].starts_with("mail rise "));
  EXPECT_TRUE(told("incident_a")[1].ends_with(" 80 no"));
  EXPECT_EQ(told("incident_b").size(), 1U);
  EXPECT_TRUE(told("incident_c").empty());
}

TEST_F(ToldTest, NothingWhereTheAlertsHaveNoDatabase) {
  EXPECT_TRUE(told("incident_a").empty());
  EXPECT_FALSE(std::filesystem::exists(with_paths().places().alert_database));
}

TEST_F(ToldTest, NothingOfADatabaseThatCannotBeRead) {
  test::write_file(with_paths().places().alert_database, std::string(100000, 'x'));
  EXPECT_TRUE(told("incident_a").empty());
}

}  // namespace
}  // namespace corvane::ctl
