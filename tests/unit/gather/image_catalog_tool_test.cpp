// The image-list tool and, in live mode, the jobs of its images.
#include "tests/unit/gather/tools.h"

namespace corvane::test {
namespace {

LogLine progress(const std::string& text) { return {2, kProgram, text}; }

class ImageTool : public ToolsTest {
 protected:
  // Image lines of jobs first, first + 1, ...
  static std::string images(int first, int count) {
    std::string lines;
    for (int id = first; id < first + count; ++id) {
      lines += R"({"backupid": "h_)" + std::to_string(id) + R"(", "job_id": )" +
               std::to_string(id) + "}\n";
    }
    return lines;
  }

  // How the jobs tool is called for jobs first, first + 1, ...
  static std::string call_for(int first, int count) {
    std::string ids;
    for (int id = first; id < first + count; ++id) ids += "," + std::to_string(id);
    return "<-jobid><" + ids.substr(1) + "><-json>";
  }

  const std::string out = world.location + "/image.out";
};

// --- do_image_gather ---

TEST_F(ImageTool, IsRunForTheRangeAndItsOutputStored) {
  image_list(images(1, 2));
  gather.do_image_gather(1000, 2000, 0);
  EXPECT_EQ(calls(), std::vector<std::string>{"<-X><-d><1000><-e><2000><-json_compact>"});
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                progress("Executing [ qpimagelist   -X  -d 1000  -e  2000 -json_compact  ]"),
                progress("Parsing file " + out), progress("Total images captured = 2")}));
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM HIST_DATA"),
            (std::vector<std::string>{"data_1_h_1", "data_2_h_2"}));
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, TakesTimesBeforeTheEpoch) {
  image_list("");
  gather.do_image_gather(-20, -10, 0);
  EXPECT_EQ(calls(), std::vector<std::string>{"<-X><-d><-20><-e><-10><-json_compact>"});
}

TEST_F(ImageTool, WritesIntoAnEmptyFileInTheDatabaseDirectory) {
  write_file(out, images(1, 100));
  tool("qpimagelist", "cp '" + out + "' seen\n");
  gather.do_image_gather(1000, 2000, 0);
  EXPECT_EQ(read_file("seen"), "");
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, IsJudgedByItsOutputAndNotByItsExitStatus) {
  write_file("images", images(5, 1));
  tool("qpimagelist", "cat images; exit 3\n");
  gather.do_image_gather(1000, 2000, 0);
  EXPECT_EQ(world.rows("HIST_DATA"), "1");
}

TEST_F(ImageTool, ThatIsMissingYieldsNoImages) {
  gather.do_image_gather(1000, 2000, 0);
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 0"));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, ThatPrintsAnErrorYieldsNoImages) {
  tool("qpimagelist", "echo 'cannot connect to server' >&2; exit 25\n");
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(fake.log.at(2),
            (LogLine{16, kProgram, "Error while parsing line cannot connect to server."}));
  EXPECT_EQ(fake.log.at(3), progress("Issue parsing image. Continue with other images."));
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 0"));
}

TEST_F(ImageTool, MayPrintALineOfTwentyMebibytes) {
  tool("qpimagelist", "head -c 20971520 /dev/zero | tr '\\0' x; echo; echo '{\"job_id\": 8}'\n");
  gather.do_image_gather(1000, 2000, 0);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"8"});
  const auto errors = corvane::fake::log_lines(16);
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0].text.size(), std::string("Error while parsing line .").size() + 20971520);
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, FileIsGoneAfterAnException) {
  image_list(images(1, 1));
  sqlite3_trace_v2(
      db, SQLITE_TRACE_STMT, [](unsigned, void*, void*, void*) -> int { throw 42; }, nullptr);
  EXPECT_THROW(gather.do_image_gather(1000, 2000, 0), int);
  sqlite3_trace_v2(db, 0, nullptr, nullptr);
  EXPECT_TRUE(left_behind().empty());
}

// --- Live mode ---

TEST_F(ImageTool, LiveGatherAsksForTheJobsOfTheImagesAndStoresThose) {
  image_list(images(101, 2));
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(calls(), (std::vector<std::string>{"<-X><-d><1000><-e><2000><-json_compact>",
                                               "<-jobid><101,102><-json>"}));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                progress("Executing [ qpimagelist   -X  -d 1000  -e  2000 -json_compact  ]"),
                progress("Parsing file " + out),
                progress("Executing [ qpdbjobs   -jobid  101,102  -json   ]"),
                progress("Total images captured = 2")}));
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, TOTAL_TIME FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"data_101_h_101", "60"}, {"data_102_h_102", "60"}}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, LiveGatherWithoutImagesAsksForNoJobs) {
  image_list("no entity was found\n");
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(calls().size(), 1U);
}

TEST_F(ImageTool, JobsOf120ImagesAreAskedForInBatchesOf50And50And20InFileOrder) {
  image_list(images(1001, 120));
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  const auto made = calls();
  ASSERT_EQ(made.size(), 4U);
  EXPECT_EQ(made[1], call_for(1001, 50));
  EXPECT_EQ(made[2], call_for(1051, 50));
  EXPECT_EQ(made[3], call_for(1101, 20));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "120");
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 120"));
}

TEST_F(ImageTool, FiftyImagesAreOneBatch) {
  image_list(images(1, 50));
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  ASSERT_EQ(calls().size(), 2U);
  EXPECT_EQ(calls()[1], call_for(1, 50));
}

TEST_F(ImageTool, JobOfSeveralImagesIsAskedForAsOftenAndTakesItsFirstImage) {
  image_list(
      "{\"backupid\": \"first\", \"job_id\": 7}\n{\"backupid\": \"other\", \"job_id\": 8}\n"
      "{\"backupid\": \"second\", \"job_id\": 7}\n");
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(calls().at(1), "<-jobid><7,8,7><-json>");
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM DATA_TO_PROCESS ORDER BY JOB_ID"),
            (std::vector<std::string>{"data_7_first", "data_8_other"}));
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 3"));
}

TEST_F(ImageTool, ImageWithoutAJobIsAskedForAsJobZero) {
  image_list("{\"backupid\": \"h_1\"}\n");
  jobs_tool();
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(calls().at(1), "<-jobid><0><-json>");
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM DATA_TO_PROCESS"),
            std::vector<std::string>{"data_0_h_1"});
}

TEST_F(ImageTool, BatchThatFailsIsLoggedAndTheNextFollows) {
  image_list(images(1, 60));
  tool("qpdbjobs", "case $2 in 1,*) echo broken;; *) echo '[{\"JobId\": 51}]';; esac\n");
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM DATA_TO_PROCESS"), std::vector<std::string>{"51"});
  const auto log = fake.log;
  ASSERT_EQ(log.size(), 7U);
  EXPECT_EQ(log[3], (LogLine{16, kProgram, "JSON parsing failed for jobs data broken\n"}));
  EXPECT_EQ(log[4], progress("Failed to gather job information."));
  EXPECT_EQ(log[6], progress("Total images captured = 60"));
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(ImageTool, JobsToolThatIsMissingIsLoggedForEachBatch) {
  image_list(images(1, 51));
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(
      std::count(fake.log.begin(), fake.log.end(), progress("Failed to gather job information.")),
      2);
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(ImageTool, StorageErrorEndsItsBatchOnly) {
  image_list(images(1, 60));
  jobs_tool();
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON DATA_TO_PROCESS WHEN NEW.JOB_ID = 3 "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(query_one(db, "SELECT group_concat(JOB_ID) FROM DATA_TO_PROCESS"),
            "1,2,51,52,53,54,55,56,57,58,59,60");
  EXPECT_EQ(
      std::count(fake.log.begin(), fake.log.end(), progress("Failed to gather job information.")),
      1);
}

TEST_F(ImageTool, BatchDoesNotStoreTheJobsOfTheBatchBeforeAgain) {
  image_list(images(1, 51));
  jobs_tool();
  query(db, "CREATE TABLE WRITES (JOB_ID INT)");
  query(db,
        "CREATE TRIGGER note AFTER INSERT ON DATA_TO_PROCESS "
        "BEGIN INSERT INTO WRITES VALUES (NEW.JOB_ID); END");
  gather.do_image_gather(1000, 2000, 1);
  EXPECT_EQ(world.rows("WRITES"), "51");
}

}  // namespace
}  // namespace corvane::test
