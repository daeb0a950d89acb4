#include "anomaly_database/model_params.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::kNow;
using test::SqlRow;

const StreamKey kStream{"it's", "p", "STANDARD", "FULL", "daily", "FS", "disk"};

class ModelParams : public test::AnomalyTables {
 protected:
  std::string all() {
    std::string read;
    read_eps(database, [&](const std::string& stream, double eps) {
      read += stream + " " + std::to_string(eps) + "\n";
    });
    return read;
  }
};

TEST_F(ModelParams, AreStoredInTheirColumns) {
  store_eps(database, kStream, 0.5, kNow);
  EXPECT_EQ(test::query(database.handle(), "SELECT * FROM DBSCAN_MODEL_PARAMS"),
            (std::vector<SqlRow>{{"it's", "p", "STANDARD", "FULL", "daily", "FS", "0.5",
                                  std::to_string(kNow), "disk", "NA"}}));
}

TEST_F(ModelParams, OfAStreamAreTheLatest) {
  store_eps(database, kStream, 0.5, kNow);
  store_eps(database, kStream, 0.75, kNow + 1);
  EXPECT_EQ(all(), "it's/p/STANDARD/FULL/daily/FS/disk 0.750000\n");
}

TEST_F(ModelParams, AreOfOneStreamEach) {
  EXPECT_EQ(all(), "");
  StreamKey other = kStream;
  other.destination = "tape";
  store_eps(database, kStream, 0.5, kNow);
  store_eps(database, other, 0.75, kNow);
  EXPECT_EQ(all(),
            "it's/p/STANDARD/FULL/daily/FS/disk 0.500000\n"
            "it's/p/STANDARD/FULL/daily/FS/tape 0.750000\n");
}

}  // namespace
}  // namespace corvane
