#include "health/own_databases.h"

#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::health {
namespace {

using namespace ctl;  // NOLINT(google-build-using-namespace)

class AlertDatabase : public OperatorWorld {
 protected:
  const std::string path_ = directory_("CV_Anomaly_Alerts.db");
};

TEST_F(AlertDatabase, ThatComesIntoUseMeanwhileIsNoticed) {
  { const alert::StateDatabase closed(path_); }
  bool asked = false;
  with_alert_database(path_, [&](alert::StateDatabase&) { asked = true; });
  EXPECT_TRUE(asked);
  std::unique_ptr<alert::StateDatabase> used;
  const auto come_into_use = [&](alert::StateDatabase&) {
    used = std::make_unique<alert::StateDatabase>(path_);
    used->set_number("x", 1);
  };
  EXPECT_THROW(with_alert_database(path_, come_into_use), ChangedMeanwhile);
}

TEST_F(AlertDatabase, AnErrorOfOneThatCameIntoUseMeanwhileIsNone) {
  { const alert::StateDatabase closed(path_); }
  EXPECT_THROW(with_alert_database(path_,
                                   [&](alert::StateDatabase& state) {
                                     test::write_file(path_ + "-wal", "");
                                     state.execute("syntax");
                                   }),
               ChangedMeanwhile);
}

TEST_F(AlertDatabase, IsOnlyRead) {
  bool asked = false;
  with_alert_database(path_, [&](alert::StateDatabase&) { asked = true; });
  EXPECT_FALSE(asked);  // there are none
  { const alert::StateDatabase closed(path_); }
  EXPECT_THROW(
      with_alert_database(path_, [](alert::StateDatabase& state) { state.set_number("x", 1); }),
      Trouble);
}

TEST_F(AlertDatabase, ThatIsDamagedIsTrouble) {
  test::write_file(path_, std::string(100000, 'x'));
  try {
    with_alert_database(path_, [](alert::StateDatabase& state) { state.tag(); });
    FAIL();
  } catch (const Trouble& trouble) {
    EXPECT_EQ(trouble.status(), ExitStatus::kDamaged);
    EXPECT_EQ(trouble.what(), path_ + " is damaged or is not a database.");
  }
}

}  // namespace
}  // namespace corvane::health
