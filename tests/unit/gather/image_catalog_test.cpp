// One image line to one record to one row; reading a file of them in historical mode.
#include <stdexcept>

#include "tests/unit/gather/gather_world.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

LogLine progress(const std::string& text) { return {2, kProgram, text}; }

class ImageCatalog : public GatherTest {
 protected:
  // Reads a file of this content in historical mode.
  void read(const std::string& content, int mode = 0) {
    write_file(path, content);
    gather.parse_qpimagelist_input(path, mode);
  }

  const std::string path = world.scratch("list");
  const LogLine parsing = progress("Parsing file " + path);
};

// --- parse_qpimagelist_line ---

TEST_F(ImageCatalog, LineBecomesARecordWithoutItsFragments) {
  EXPECT_EQ(gather.parse_qpimagelist_line(
                R"({"client_name": "h", "kbytes": 12, "ratio": 1.5e-7, "on": true, "off": false,
                    "none": null, "copies": [1], "frags": [{"id": 1}], "object": {}})"),
            (Record{{"client_name", "h"},
                    {"kbytes", "12"},
                    {"ratio", "1.5e-07"},
                    {"on", "1"},
                    {"off", "0"},
                    {"none", ""},
                    {"copies", ""},
                    {"object", ""}}));
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(ImageCatalog, LineMayEndInACarriageReturn) {
  EXPECT_EQ(gather.parse_qpimagelist_line("{\"a\": 1}\r"), (Record{{"a", "1"}}));
}

TEST_F(ImageCatalog, LineThatIsNoJsonIsLoggedAndThrown) {
  try {
    gather.parse_qpimagelist_line("{\"a\": 100%d");
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "JSON parsing failed for qpimagelist image.");
  }
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "Error while parsing line {\"a\": 100%d."}}));
}

TEST_F(ImageCatalog, LineThatIsAnArrayIsAnEmptyRecord) {
  EXPECT_TRUE(gather.parse_qpimagelist_line(R"([{"a": 1}])").empty());
  EXPECT_TRUE(fake.log.empty());
}

// --- process_image_data ---

TEST_F(ImageCatalog, ImageIsStoredByOneInsertWithTheseColumns) {
  Record image{{"backupid", "h_1700000000"},
               {"backup_time", "1700000000"},
               {"client_name", "h"},
               {"policy_name", "nightly"},
               {"client_type", "9"},
               {"sched_type", "1"},
               {"sched_label", "incr"},
               {"app_type", "not read"},
               {"num_files", "12"},
               {"kbytes", "1024.75"},
               {"job_id", "42"},
               {"stream_number", "3"},
               {"provider_generated_id", "vm-1"},
               {"elapsed_time", "60"}};
  SqlRecorder sql(db);
  gather.process_image_data(image, 1);
  EXPECT_EQ(sql.texts, std::vector<std::string>{
                           "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, "
                           "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );"});
  EXPECT_EQ(query(db, "SELECT * FROM HIST_DATA"), (std::vector<SqlRow>{{"h_1700000000",
                                                                        "1700000000",
                                                                        "h",
                                                                        "nightly",
                                                                        "Cloud",
                                                                        "DIFFERENTIAL_INCREMENTAL",
                                                                        "incr",
                                                                        "NONE",
                                                                        "12",
                                                                        "1024.75",
                                                                        "42",
                                                                        "-1",
                                                                        "-1.0",
                                                                        "-1",
                                                                        "-1",
                                                                        "-1",
                                                                        "-1.0",
                                                                        "0",
                                                                        "-1",
                                                                        "NA",
                                                                        "3",
                                                                        "vm-1",
                                                                        "data_42_h_1700000000"}}));
}

TEST_F(ImageCatalog, FiguresThatTheListLacksAreBoundAsIntegersAndTheSizeAsAReal) {
  Record image{{"backupid", "h_1"}, {"job_id", "42"}, {"kbytes", "1024"}};
  SqlRecorder sql(db);
  gather.process_image_data(image, 0);
  EXPECT_EQ(sql.expanded, std::vector<std::string>{
                              "INSERT OR REPLACE INTO HIST_DATA  VALUES ( 'h_1', 0, '', '', "
                              "'Standard', 'FULL', '', 'NONE', 0, 1024.0, 42, -1, -1, -1, -1, -1, "
                              "-1, 0, -1, 'NA', 0, 'NA', 'data_42_h_1' );"});
}

TEST_F(ImageCatalog, ImageWithoutMembersReadsAsEmptyTextsAndZeros) {
  Record image;
  gather.process_image_data(image, 0);
  EXPECT_EQ(query(db, "SELECT * FROM HIST_DATA"),
            (std::vector<SqlRow>{{"",     "0",   "",   "",   "Standard", "FULL", "",       "NONE",
                                  "0",    "0.0", "0",  "-1", "-1.0",     "-1",   "-1",     "-1",
                                  "-1.0", "0",   "-1", "NA", "0",        "NA",   "data_0_"}}));
}

TEST_F(ImageCatalog, ImageOfPolicyType99HasAnEmptyPolicyTypeName) {
  Record image{{"client_type", "99"}, {"sched_type", "7"}};
  gather.process_image_data(image, 0);
  EXPECT_EQ(query(db, "SELECT POLICY_TYPE, SCHEDULE_TYPE FROM HIST_DATA"),
            (std::vector<SqlRow>{{"", ""}}));
}

TEST_F(ImageCatalog, EmptyProviderIdIsNotAvailableAndTheKeyIsOfJobAndBackupId) {
  Record image{{"provider_generated_id", ""}, {"job_id", "42"}, {"backupid", "h_1"}};
  gather.process_image_data(image, 0);
  EXPECT_EQ(query(db, "SELECT ASSET_ID, UNIQUE_KEY FROM HIST_DATA"),
            (std::vector<SqlRow>{{"NA", "data_42_h_1"}}));
}

TEST_F(ImageCatalog, ImagesOfTheSameBackupAndJobReplaceEachOther) {
  read(R"({"backupid": "h_1", "job_id": 42, "kbytes": 1}
{"backupid": "h_1", "job_id": 42, "kbytes": 2}
{"backupid": "h_1", "job_id": 43, "kbytes": 3}
)");
  EXPECT_EQ(query(db, "SELECT JOB_ID, IMAGE_SIZE FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<SqlRow>{{"42", "2.0"}, {"43", "3.0"}}));
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 3"));
}

TEST_F(ImageCatalog, StorageErrorIsLoggedTheImageLostAndTheReadingGoesOn) {
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON HIST_DATA WHEN NEW.JOB_ID = 2 "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  read("{\"job_id\": 1}\n{\"job_id\": 2}\n{\"job_id\": 3}\n");
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), (std::vector<std::string>{"1", "3"}));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                parsing,
                {16, kProgram, "Error inserting data in IMAGE_DATA sqlite query execution failed."},
                progress("Total images captured = 3")}));
}

TEST_F(ImageCatalog, MissingTableIsLoggedWithTheWholeStatement) {
  query(db, "DROP TABLE HIST_DATA");
  Record image;
  EXPECT_NO_THROW(gather.process_image_data(image, 0));
  EXPECT_EQ(
      fake.log,
      (std::vector<LogLine>{
          {16, kProgram,
           "Error inserting data in IMAGE_DATA sqlite prepare statement failed for query - "
           "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
           "?, ?, ?, ?, ?, ?, ?, ?, ?, ? ); "}}));
}

// --- parse_qpimagelist_input, historical ---

TEST_F(ImageCatalog, FileWithoutImagesLogsNoDataAndATotalOfZero) {
  read("no entity was found\n");
  EXPECT_EQ(fake.log, (std::vector<LogLine>{parsing, progress("No data received"),
                                            progress("Total images captured = 0")}));
}

TEST_F(ImageCatalog, FileThatCannotBeReadToItsEndIsSaidAfterTheTotal) {
  std::filesystem::create_directory(path);  // opens, is not read
  gather.parse_qpimagelist_input(path, 0);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{parsing, progress("Total images captured = 0"),
                                  LogLine{16, kProgram, "Could not read all of " + path}}));
}

TEST_F(ImageCatalog, ReadingGoesOnAfterTheNoEntityLineWhichCountsOnlyWhenItIsExact) {
  read("no entity was found\n{\"job_id\": 1}\nno entity was found \n");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{parsing,
                                  progress("No data received"),
                                  {16, kProgram, "Error while parsing line no entity was found ."},
                                  progress("Issue parsing image. Continue with other images."),
                                  progress("Total images captured = 1")}));
}

TEST_F(ImageCatalog, LineWithASyntaxErrorIsSkippedAndDoesNotCount) {
  read("{\"job_id\": 1\n{\"job_id\": 2}\n");
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"2"});
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{parsing,
                                  {16, kProgram, "Error while parsing line {\"job_id\": 1."},
                                  progress("Issue parsing image. Continue with other images."),
                                  progress("Total images captured = 1")}));
}

TEST_F(ImageCatalog, LastLineCountsWithoutALineEndAndAnEmptyLineIsNoImage) {
  read("{\"job_id\": 1}\n\n{\"job_id\": 2}");
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
  EXPECT_EQ(fake.log.at(1), (LogLine{16, kProgram, "Error while parsing line ."}));
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 2"));
}

TEST_F(ImageCatalog, ArrayLineIsStoredAsAnImageWithoutMembersAndCounts) {
  read("[]\n");
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM HIST_DATA"),
            std::vector<std::string>{"data_0_"});
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 1"));
}

TEST_F(ImageCatalog, MissingFileHasNoImages) {
  gather.parse_qpimagelist_input(path, 0);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{parsing, progress("Total images captured = 0")}));
}

// SQLite's trace callback is a place from which any exception can be let loose while an image is
// stored.
template <typename Error>
int throw_error(unsigned, void*, void*, void*) {
  throw Error("what went wrong");
}

TEST_F(ImageCatalog, ErrorOfTheStandardFamilyIsLoggedAndTheImageCountsAllTheSame) {
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, throw_error<std::runtime_error>, nullptr);
  read("{\"job_id\": 1}\n");
  sqlite3_trace_v2(db, 0, nullptr, nullptr);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{parsing, progress("Failed to parse. Details: what went wrong"),
                                  progress("Total images captured = 1")}));
  read("{\"job_id\": 2}\n");
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"2"});
}

struct AlienError {
  explicit AlienError(const char*) {}
};

TEST_F(ImageCatalog, OtherErrorsLeaveTheReading) {
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, throw_error<AlienError>, nullptr);
  EXPECT_THROW(read("{\"job_id\": 1}\n"), AlienError);
  sqlite3_trace_v2(db, 0, nullptr, nullptr);
  EXPECT_EQ(fake.log, std::vector<LogLine>{parsing});
}

TEST_F(ImageCatalog, AnyModeButLiveIsHistorical) {
  read("{\"job_id\": 1}\n", 2);
  EXPECT_EQ(query(db, "SELECT JOB_ID, MODE FROM HIST_DATA"), (std::vector<SqlRow>{{"1", "0"}}));
}

}  // namespace
}  // namespace corvane::test
