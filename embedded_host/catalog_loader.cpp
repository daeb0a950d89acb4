#include "embedded_host/catalog_loader.h"

#include <limits>
#include <string_view>
#include <vector>

#include "embedded_host/backup.h"
#include "embedded_host/catalog.h"

namespace corvane::host {

namespace {

constexpr std::size_t kMaxLine = std::size_t{64} << 10;
constexpr std::int64_t kLinesPerTransaction = 5000;

class LineReader {
 public:
  explicit LineReader(std::istream& in) : in_(in), buffer_(kMaxLine + 1) {}

  // Returns false at the end. A line that is too long is skipped, and `too_long` is set.
  bool next(std::string_view& line, bool& too_long) {
    in_.getline(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    auto length = static_cast<std::size_t>(in_.gcount());
    too_long = in_.fail() && !in_.bad() && length == buffer_.size() - 1;
    if (too_long) {
      in_.clear();
      in_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      return true;
    }
    if (in_.fail()) return false;
    if (!in_.eof()) --length;  // the line end was counted
    line = std::string_view(buffer_.data(), length);
    return true;
  }

 private:
  std::istream& in_;
  std::vector<char> buffer_;
};

class Loader {
 public:
  Loader(Connection& catalog, const std::string& name,
         const std::function<void(const std::string&)>& complain)
      : catalog_(catalog), writer_(catalog), name_(name), complain_(complain) {}

  LoadResult run(std::istream& in) {
    LineReader reader(in);
    std::string_view line;
    bool too_long = false;
    bool more = true;
    while (more) {
      Transaction transaction(catalog_);
      std::int64_t lines = 0;
      while (lines < kLinesPerTransaction && (more = reader.next(line, too_long))) {
        ++lines;
        ++line_number_;
        too_long ? reject("the line is too long") : load(line);
      }
      transaction.commit();
      committed_ = result_.loaded;
    }
    return result_;
  }

  std::int64_t committed() const { return committed_; }

 private:
  void load(std::string_view line) {
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
    try {
      writer_.put(parse_backup(line));
      ++result_.loaded;
    } catch (const BadBackup& error) {
      reject(error.what());
    } catch (const QueryError& error) {
      if (error.extended_code() != SQLITE_CONSTRAINT_UNIQUE) throw;
      reject("another job already has this 'backupId'");
    }
  }

  void reject(const std::string& reason) {
    ++result_.rejected;
    complain_(name_ + ":" + std::to_string(line_number_) + ": " + reason);
  }

  Connection& catalog_;
  BackupWriter writer_;
  const std::string& name_;
  const std::function<void(const std::string&)>& complain_;
  LoadResult result_;
  std::int64_t line_number_ = 0;
  std::int64_t committed_ = 0;
};

}  // namespace

LoadResult load_backups(Connection& catalog, std::istream& lines, const std::string& name,
                        const std::function<void(const std::string&)>& complain) {
  Loader loader(catalog, name, complain);
  const auto so_far = [&] {
    return "; " + std::to_string(loader.committed()) + " backups are in the catalog";
  };
  LoadResult result;
  try {
    result = loader.run(lines);
  } catch (const QueryError& error) {
    throw LoadFailure("cannot write the catalog: " + error.inner_message() + so_far());
  }
  if (lines.bad()) throw LoadFailure(name + ": read error" + so_far());
  return result;
}

}  // namespace corvane::host
