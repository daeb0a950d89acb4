#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class HealingCommand : public Commands {
 protected:
  // What is printed after cvanomalyheal has ended.
  std::string printed(Options options) {
    options = with_paths(options);
    const Terminal terminal;
    Database opened(options.database);
    return run_healing({options, terminal, opened});
  }
};

TEST_F(HealingCommand, TellsWhatTheLedgerSays) {
  looked().note(kNow, "3 backups were gathered again");
  Options options;
  options.utc = true;
  EXPECT_EQ(printed(options),
            "Healing       last look 2023-11-14 22:13; no holes\n"
            "              2023-11-14 22:13 3 backups were gathered again\n");
}

TEST_F(HealingCommand, ALedgerThatCannotBeReadSaysWhy) {
  const std::string path = directory_("CV_Anomaly_Coverage.db");
  test::write_file(path, std::string(100000, 'x'));
  LedgerHealth ledger;
  EXPECT_EQ(healing_text({}, true, ledger), "Healing       cvanomalyheal has never run\n");
  ledger.trouble = "It is damaged.";
  EXPECT_EQ(healing_text({}, true, ledger), "Healing       It is damaged.\n");
  EXPECT_TRUE(says(say({"status"}), "\nGathers       unknown\n"));
}

TEST_F(HealingCommand, AsJson) {
  looked().note(kNow, "3 backups were gathered again");
  Options options;
  options.json = true;
  for (const auto& [command, name] :
       {std::pair(Command::kHeal, "heal"), {Command::kGather, "gather"}}) {
    options.command = command;
    const JsonPtr root(json_loads(printed(options).c_str(), 0, nullptr));
    EXPECT_EQ(compact(member(root.get(), {"command"})), "\"" + std::string(name) + "\"");
    EXPECT_EQ(number(root.get(), {"schema"}), 1);
    EXPECT_EQ(number(root.get(), {"healing", "last_look"}), kNow);
    EXPECT_EQ(compact(member(root.get(), {"healing", "acts"})),
              R"([{"time":1700000000,"text":"3 backups were gathered again"}])");
  }
}

TEST_F(HealingCommand, NeedsTheHealer) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"heal"},
        {"gather", "--from", "2026-11-20", "--to", "2026-11-21"}}) {
    const Said said = say(arguments);
    EXPECT_EQ(said.status, 8);
    EXPECT_EQ(said.out, "");
    EXPECT_TRUE(said.error.starts_with("cvanomalyctl: Cannot start /")) << said.error;
    EXPECT_TRUE(said.error.ends_with("/cvanomalyheal: No such file or directory.\n")) << said.error;
  }
}

}  // namespace
}  // namespace corvane::ctl
