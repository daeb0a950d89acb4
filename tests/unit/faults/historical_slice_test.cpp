// One slice of the historical gather, followed by one in which nothing fails.
#include "anomaly_database/backup_row.h"
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"
#include "tests/unit/gather/rest_answers.h"

namespace corvane::test {
namespace {

constexpr int kFirstStart = kNow - 7200;
constexpr int kFirstEnd = kNow - 3600;
const std::string kFirstStartText = "2023-11-14T20:13:20.000Z";

std::string bounds(int start, int end) {
  return "between " + std::to_string(start) + " & " + std::to_string(end) + " ";
}

const std::string kFirstSlice = "Capturing data " + bounds(kFirstStart, kFirstEnd);
const std::string kSecondSlice = "Capturing data " + bounds(kFirstEnd + 1, kNow);
const LogLine kRolledBack =
    progress("Error occurred while capturing data " + bounds(kFirstStart, kFirstEnd));

std::vector<Stated> stated_lines() {
  std::vector<Stated> stated{
      {kRolledBack, kAny},
      // When SQLite has rolled back by itself.
      {error("ROLLBACK TRANSACTION execution failed.")},
      {error("Could not capture data " + bounds(kFirstStart, kFirstEnd)), kAny},
      {error("JSON parsing failed for jobs data ")}};
  append(stated, kBrokenRequestLines);
  append(stated, with_reasons("Error inserting data: ", {corvane::kInsertHistData}, 1));
  return stated;
}

bool is_of_first_slice(const std::string& row) { return row.find("|first") != std::string::npos; }

class HistoricalSlice : public FaultTest {
 protected:
  // Few allocations, or else more rows than SQLite has memory for.
  const int images_per_page = GetParam().kind == Fault::kAllocation ? 2 : 25;

  std::string answer(const std::string& slice, bool second_page) const {
    std::vector<std::string> images;
    for (int i = 0; i < images_per_page; ++i) {
      images.push_back(image((slice == "first" ? 1000 : 2000) + 2 * i + (second_page ? 1 : 0),
                             slice + (second_page ? "b" : "a") + std::to_string(i),
                             R"("policyName": ")" + std::string(100, 'p') + "\""));
    }
    return page(images, second_page ? std::nullopt : std::optional(1));
  }

  // Both slices; `failed` becomes how many calls of the first have failed.
  Outcome gather(const FaultPoint& point, int& failed) const {
    SmallWorld world;
    cover(world, kNow - kHistorySeconds, kFirstStart);  // so that only these two are left
    corvane::fake::state().handler = [&](const corvane::fake::HttpRequest& request) {
      if (fails(Fault::kRequest)) return kBrokenRequest;
      const FaultsSuspended suspended;
      const bool first = request.path.find("ge%20" + kFirstStartText) != std::string::npos;
      const bool second_page = request.path.find("offset%5D=1&") != std::string::npos;
      return corvane::fake::HttpAnswer{.body = answer(first ? "first" : "second", second_page)};
    };
    on_log([&](std::string_view tag, std::string_view text) {
      if (tag == kHistory && text == kFirstSlice) arm(point);
      if (tag == kHistory && text == kSecondSlice) failed = disarm();
    });
    try {
      world.service.do_historical_gather(*world.gather);
    } catch (...) {
      disarm();
      ADD_FAILURE() << "an exception came out";
    }
    on_log(nullptr);
    return outcome_of(world);
  }

  int attempt(const FaultPoint& point) const {
    int failed = 0;
    const Outcome outcome = gather(point, failed);
    expect_stated(outcome, undisturbed_, stated_);
    const Rows lost = difference(undisturbed_.rows, outcome.rows);
    EXPECT_TRUE(std::all_of(lost.begin(), lost.end(), is_of_first_slice))
        << "the next slice has lost a row";
    if (has_logged(outcome, kRolledBack)) {
      EXPECT_TRUE(std::none_of(outcome.rows.begin(), outcome.rows.end(), is_of_first_slice))
          << "a slice that was rolled back has left a row";
    }
    return failed;
  }

  const std::vector<Stated> stated_ = stated_lines();
  Outcome undisturbed_;
};

TEST_P(HistoricalSlice, LosesWhatIsLoggedAndNoMore) {
  int none = 0;
  corvane::fake::reset();
  undisturbed_ = gather({}, none);
  ASSERT_EQ(std::count_if(undisturbed_.rows.begin(), undisturbed_.rows.end(), is_of_first_slice),
            2 * images_per_page);
  ASSERT_EQ(undisturbed_.rows.size(), static_cast<std::size_t>(4 * images_per_page + 1));
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(Every, HistoricalSlice,
                         ::testing::ValuesIn(once_and_from_then_on({Fault::kAllocation,
                                                                    Fault::kStatement, Fault::kRead,
                                                                    Fault::kWrite, Fault::kSync})),
                         kind_name);

// Not from then on: a page that keeps failing is asked for again until it comes.
INSTANTIATE_TEST_SUITE_P(EveryOne, HistoricalSlice, ::testing::Values(FaultKind{Fault::kRequest}),
                         kind_name);

}  // namespace
}  // namespace corvane::test
