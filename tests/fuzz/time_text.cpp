// Times as text: the gather's reader by fixed positions, and the web service's strict one.
#include <cstring>
#include <initializer_list>
#include <stdexcept>

#include "embedded_host/iso_time.h"
#include "gather/data_gather.h"
#include "tests/fuzz/fuzz.h"

using corvane::fuzz::require;

namespace {

// Fewer characters do not reach the seconds.
constexpr std::size_t kShortest = 17;

void check_reading(DataGather& gather, const std::string& text) {
  int seconds = 0;
  try {
    seconds = gather.str_to_time(text);
  } catch (const std::out_of_range&) {
    require(text.size() < kShortest, "only a short text is out of range");
    return;
  }
  require(text.size() >= kShortest, "a short text is out of range");

  std::string other_marks = text.substr(0, 19);
  for (const std::size_t mark : {4U, 7U, 10U, 13U, 16U}) other_marks[mark] = '0';
  require(gather.str_to_time(other_marks + "Z?") == seconds, "marks and the rest do not count");

  if (const auto instant = corvane::host::parse_iso_time(text)) {
    require(static_cast<int>(instant->seconds) == seconds, "both readers agree");
    require(corvane::host::iso_time(instant->seconds).substr(0, 19) == text.substr(0, 19),
            "a time that was read is written alike", text);
  }
}

void check_writing(DataGather& gather, int seconds) {
  const std::string text = gather.time_to_str(seconds);
  require(gather.str_to_time(text) == seconds, "a time written is read alike", text);
  require(text == corvane::host::iso_time(seconds), "both writers agree", text);
  const auto instant = corvane::host::parse_iso_time(text);
  require(instant && instant->seconds == seconds && instant->milliseconds == 0,
          "the strict reader reads what is written", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DataGather gather(nullptr, "", "");
  check_reading(gather, corvane::fuzz::text_of(data, size));
  if (size >= sizeof(std::int32_t)) {
    std::int32_t seconds = 0;
    std::memcpy(&seconds, data, sizeof seconds);
    check_writing(gather, seconds);
  }
  return 0;
}
