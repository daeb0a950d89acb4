#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

TEST_F(Commands, HostileNamesNeverReachTheTerminal) {
  const std::string name = "evil\x1B]0;x\x07\x1B[2J\r\n\x7F\xC2\x9B\xE2\x80\xAE\xE2\x80\x8B\xFF<b>";
  TestBackup bad{.client = name, .policy = name, .schedule = name};
  history(bad, 40);
  sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted("anomaly_" + name) + ", " + quoted(name) +
      ", 0, " + quoted(name) + ", " + quoted(name) + ", 99)");
  for (const std::vector<std::string>& command : {std::vector<std::string>{"status"},
                                                  {"streams"},
                                                  {"anomalies"},
                                                  {"show", "anomaly_" + name},
                                                  {"show", "no" + name},
                                                  {"explain", name},
                                                  {"check"},
                                                  {"status", "--json"},
                                                  {"streams", "--json"},
                                                  {"anomalies", "--json"},
                                                  {"show", "--json", "anomaly_" + name}}) {
    const Said said = say(command);
    for (const char letter : said.out + said.error) {
      const auto byte = static_cast<unsigned char>(letter);
      EXPECT_TRUE(byte == '\n' || (byte >= 0x20 && byte != 0x7F)) << command[0] << " " << +byte;
    }
    for (const char* character : {"\xC2\x9B", "\xE2\x80\xAE", "\xE2\x80\x8B"}) {
      EXPECT_EQ((said.out + said.error).find(character), std::string::npos) << command[0];
    }
  }
  json({"streams"});
  json({"anomalies"});
}

TEST_F(Commands, TablesFitTheTerminal) {
  history({.client = std::string(300, 'x')}, 3);
  three_anomalies();
  setenv("COLUMNS", "72", 1);
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"streams"}, {"anomalies"}}) {
    const std::string out = say(command).out;
    for (std::size_t at = 0; at < out.size();) {
      const std::size_t end = out.find('\n', at);
      EXPECT_LE(end - at, 72U + 10) << out.substr(at, end - at);  // the ellipses' bytes
      at = end + 1;
    }
  }
  unsetenv("COLUMNS");
}

TEST_F(Commands, ReadingChangesNothing) {
  history({}, 40);
  three_anomalies();
  close_database();
  const std::string before = test::read_file(database());
  for (const std::vector<std::string>& command : {std::vector<std::string>{"status"},
                                                  {"streams"},
                                                  {"anomalies"},
                                                  {"backtest", "5"},
                                                  {"check"}}) {
    const Said said = say(command);
    EXPECT_EQ(said.status, command[0] == "check" ? 2 : 0) << command[0] << said.error;
    EXPECT_NE(said.out, "") << command[0];
  }
  EXPECT_EQ(test::read_file(database()), before);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory_())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_EQ(names, std::vector<std::string>{"CV_Anomaly.db"});
}

}  // namespace
}  // namespace corvane::ctl
