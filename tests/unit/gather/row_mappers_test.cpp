// The three mappers side by side: a line for each column, a place in it for each source.
#include "gather/row_mappers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "gather/data_gather.h"

namespace corvane {
namespace {

// A column's name and its value in the rows of the three sources; a real has a point, a text
// quotes.
struct Line {
  std::string column;
  std::string rest;
  std::string listed_image;
  std::string tool_job;
  bool operator==(const Line&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Line& line) {
  return out << "\n"
             << line.column << ": " << line.rest << " | " << line.listed_image << " | "
             << line.tool_job;
}

std::string shown(const std::string& text) { return "'" + text + "'"; }
std::string shown(int number) { return std::to_string(number); }
std::string shown(double number) {
  std::ostringstream text;
  text << std::showpoint << number;
  return text.str();
}
std::string shown(const std::variant<int, double>& number) {
  return std::visit([](auto value) { return shown(value); }, number);
}

std::vector<Line> side_by_side(const BackupRow& rest, const BackupRow& image,
                               const BackupRow& job) {
  const auto line = [&](const char* column, auto BackupRow::*member) {
    return Line{column, shown(rest.*member), shown(image.*member), shown(job.*member)};
  };
  return {line("backup id", &BackupRow::backup_id),
          line("backup time", &BackupRow::backup_time),
          line("client", &BackupRow::client),
          line("policy", &BackupRow::policy),
          line("policy type", &BackupRow::policy_type),
          line("schedule type", &BackupRow::schedule_type),
          line("schedule name", &BackupRow::schedule_name),
          line("app type", &BackupRow::app_type),
          line("files", &BackupRow::num_files),
          line("image size", &BackupRow::image_size),
          line("job id", &BackupRow::job_id),
          line("parent job id", &BackupRow::parent_job_id),
          line("transferred", &BackupRow::kb_transferred),
          line("start time", &BackupRow::start_time),
          line("end time", &BackupRow::end_time),
          line("total time", &BackupRow::total_time),
          line("dedup rate", &BackupRow::dedup_rate),
          line("mode", &BackupRow::mode),
          line("cluster or status", &BackupRow::cluster_or_status),
          line("destination", &BackupRow::destination),
          line("stream number", &BackupRow::stream_number),
          line("asset id", &BackupRow::asset_id),
          line("unique key", &BackupRow::unique_key)};
}

class RowMappersTest : public ::testing::Test {
 protected:
  std::vector<Line> rows() {
    return side_by_side(row_of_rest_record(gather, rest), row_of_listed_image(gather, image),
                        row_of_tool_job(gather, job, image));
  }

  // The same lines for a few columns.
  std::vector<Line> rows(const std::vector<std::string>& columns) {
    std::vector<Line> chosen;
    for (const Line& line : rows()) {
      if (std::ranges::find(columns, line.column) != columns.end()) chosen.push_back(line);
    }
    return chosen;
  }

  BackupRecord rest;
  BackupRecord image;  // of the image-list tool, for itself and for the job
  BackupRecord job;
  DataGather gather{nullptr, "", ""};  // for its tables alone
};

TEST_F(RowMappersTest, WholeRecords) {
  rest = {{"backupId", "h_1"},
          {"backupTime", "2023-05-01T10:20:30.000Z"},
          {"clientName", "h"},
          {"policyName", "nightly"},
          {"policyType", "CLOUD"},
          {"scheduleType", "FULL"},
          {"scheduleName", "weekly"},
          {"applicationType", "db"},
          {"numFiles", "12"},
          {"kbytes", "1024.75"},
          {"jobId", "42"},
          {"parentJobId", "41"},
          {"kilobytesTransferred", "512.5"},
          {"startTime", "2023-05-01T10:20:31.000Z"},
          {"endTime", "2023-05-01T10:21:31.000Z"},
          {"dedupRatio", "2.5"},
          {"destinationStorageUnitName", "disk"},
          {"streamNumber", "3"},
          {"providerGeneratedId", "vm-1"},
          {"state", "DONE"}};
  image = {{"backupid", "h_1"},       {"backup_time", "1682936430"},
           {"client_name", "h"},      {"policy_name", "nightly"},
           {"client_type", "9"},      {"sched_type", "0"},
           {"sched_label", "weekly"}, {"app_type", "db"},
           {"num_files", "12"},       {"kbytes", "1024.75"},
           {"job_id", "42"},          {"stream_number", "4"},
           {"elapsed_time", "60"},    {"provider_generated_id", "vm-1"}};
  job = {{"JobId", "43"},
         {"ParentJobId", "41"},
         {"KilobytesTransferred", "512.5"},
         {"StartTime", "1682936431"},
         {"EndTime", "1682936491"},
         {"DedupRatio", "2.5"},
         {"DestinationStorageUnitName", "disk"},
         {"StreamNumber", "3"},
         {"State", "ACTIVE"}};
  EXPECT_EQ(rows(),
            (std::vector<Line>{{"backup id", "'h_1'", "'h_1'", "'h_1'"},
                               {"backup time", "1682936430", "1682936430", "1682936430"},
                               {"client", "'h'", "'h'", "'h'"},
                               {"policy", "'nightly'", "'nightly'", "'nightly'"},
                               {"policy type", "'CLOUD'", "'Cloud'", "'Cloud'"},
                               {"schedule type", "'FULL'", "'FULL'", "'FULL'"},
                               {"schedule name", "'weekly'", "'weekly'", "'weekly'"},
                               {"app type", "'db'", "'NONE'", "'db'"},
                               {"files", "12", "12", "12"},
                               {"image size", "1024", "1024.75", "1024.75"},
                               {"job id", "42", "42", "43"},
                               {"parent job id", "41", "-1", "41"},
                               {"transferred", "512", "-1", "512"},
                               {"start time", "1682936431", "-1", "1682936431"},
                               {"end time", "1682936491", "-1", "1682936491"},
                               {"total time", "-1", "-1", "60"},
                               {"dedup rate", "2.50000", "-1", "2.50000"},
                               {"mode", "0", "0", "1"},
                               {"cluster or status", "-1", "-1", "0"},
                               {"destination", "'disk'", "'NA'", "'disk'"},
                               {"stream number", "3", "4", "3"},
                               {"asset id", "'vm-1'", "'vm-1'", "'vm-1'"},
                               {"unique key", "'data_42_h_1'", "'data_42_h_1'", "'data_43_h_1'"}}));
}

TEST_F(RowMappersTest, EmptyRecords) {
  EXPECT_EQ(rows(), (std::vector<Line>{{"backup id", "''", "''", "''"},
                                       {"backup time", "-1", "0", "0"},
                                       {"client", "''", "''", "''"},
                                       {"policy", "''", "''", "''"},
                                       {"policy type", "''", "'Standard'", "'Standard'"},
                                       {"schedule type", "''", "'FULL'", "'FULL'"},
                                       {"schedule name", "''", "''", "''"},
                                       {"app type", "'NONE'", "'NONE'", "''"},
                                       {"files", "-1", "0", "0"},
                                       {"image size", "-1", "0.00000", "0.00000"},
                                       {"job id", "-1", "0", "0"},
                                       {"parent job id", "-1", "-1", "0"},
                                       {"transferred", "-1", "-1", "0"},
                                       {"start time", "-1", "-1", "0"},
                                       {"end time", "-1", "-1", "0"},
                                       {"total time", "-1", "-1", "0"},
                                       {"dedup rate", "-1.00000", "-1", "-1.00000"},
                                       {"mode", "0", "0", "1"},
                                       {"cluster or status", "-1", "-1", "0"},
                                       {"destination", "'NA'", "'NA'", "''"},
                                       {"stream number", "0", "0", "0"},
                                       {"asset id", "'NA'", "'NA'", "'NA'"},
                                       {"unique key", "'data_-1_'", "'data_0_'", "'data_0_'"}}));
}

TEST_F(RowMappersTest, MembersThatAreThereAndEmptyReadAsZeroButTheAssetIdAsAbsent) {
  rest = {{"applicationType", ""}, {"numFiles", ""},           {"kbytes", ""},
          {"jobId", ""},           {"dedupRatio", ""},         {"destinationStorageUnitName", ""},
          {"streamNumber", ""},    {"providerGeneratedId", ""}};
  image = {{"num_files", ""}, {"kbytes", ""}, {"provider_generated_id", ""}};
  job = {{"JobId", ""}, {"DedupRatio", ""}, {"DestinationStorageUnitName", ""}};
  EXPECT_EQ(rows({"app type", "files", "image size", "job id", "dedup rate", "destination",
                  "stream number", "asset id"}),
            (std::vector<Line>{{"app type", "''", "'NONE'", "''"},
                               {"files", "0", "0", "0"},
                               {"image size", "0", "0.00000", "0.00000"},
                               {"job id", "0", "0", "0"},
                               {"dedup rate", "0.00000", "-1", "0.00000"},
                               {"destination", "''", "'NA'", "''"},
                               {"stream number", "0", "0", "0"},
                               {"asset id", "'NA'", "'NA'", "'NA'"}}));
}

TEST_F(RowMappersTest, FiguresOver31BitsWrapWhereTheyAreIntegers) {
  rest = {{"numFiles", "4294967297"}, {"kbytes", "5000000000"}};
  image = {{"num_files", "4294967297"}, {"kbytes", "5000000000"}};
  EXPECT_EQ(rows({"files", "image size"}),
            (std::vector<Line>{{"files", "1", "1", "1"},
                               {"image size", "705032704", "5.00000e+09", "5.00000e+09"}}));
}

TEST_F(RowMappersTest, TextBehindANumberIsIgnored) {
  rest = {{"numFiles", "12 files"}, {"dedupRatio", "2.5x"}};
  image = {{"num_files", "12 files"}};
  job = {{"DedupRatio", "2.5x"}};
  EXPECT_EQ(
      rows({"files", "dedup rate"}),
      (std::vector<Line>{{"files", "12", "12", "12"}, {"dedup rate", "2.50000", "-1", "2.50000"}}));
}

TEST_F(RowMappersTest, JobTimesThatLieTooFarApartWrap) {
  job = {{"StartTime", "-2147483648"}, {"EndTime", "2147483647"}};
  EXPECT_EQ(row_of_tool_job(gather, job, image).total_time, -1);
}

TEST_F(RowMappersTest, TimeTextOfRestThatIsCutShortThrows) {
  for (const char* name : {"backupTime", "startTime", "endTime"}) {
    EXPECT_THROW(row_of_rest_record(gather, {{name, "2023-05-01"}}), std::out_of_range) << name;
    EXPECT_THROW(row_of_rest_record(gather, {{name, ""}}), std::out_of_range) << name;
  }
}

TEST_F(RowMappersTest, CodesOutsideTheTablesHaveEmptyNamesAndAreAddedByTheToolsOnly) {
  rest = {{"policyType", "99"}, {"scheduleType", "7"}};
  EXPECT_EQ(row_of_rest_record(gather, rest).policy_type, "99");
  EXPECT_EQ(gather.policy_types.size(), 51U);
  image = {{"client_type", "99"}, {"sched_type", "7"}};
  EXPECT_EQ(rows({"policy type", "schedule type"}),
            (std::vector<Line>{{"policy type", "'99'", "''", "''"},
                               {"schedule type", "'7'", "''", "''"}}));
  EXPECT_TRUE(gather.policy_types.contains(99));
  EXPECT_TRUE(gather.schedule_types.contains(7));
}

}  // namespace
}  // namespace corvane
