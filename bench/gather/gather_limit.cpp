// gather_limit: the least that gather_bench's work can cost. The same input through libcurl and
// Jansson straight into one prepared statement, with the schema and the pragmas of the database
// that it is given; nothing is logged, kept in a record or recovered from.
//
//   gather_limit lines DATABASE FILE
//   gather_limit history DATABASE CREDENTIALS SERVER START END
//   gather_limit fetch DATABASE CREDENTIALS SERVER START END      its pages, unread
//   gather_limit store DATABASE FILE

#include <curl/curl.h>
#include <jansson.h>
#include <sqlite3.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/gather/figures.h"

namespace {

constexpr int kSliceSeconds = 3600;
constexpr const char* kHistoryInsert =
    "INSERT OR REPLACE INTO HIST_DATA VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr const char* kWaitingInsert =
    "INSERT OR REPLACE INTO DATA_TO_PROCESS VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

class Inserts {
 public:
  Inserts(const std::string& path, const char* insert) {
    require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "cannot open the database");
    require(sqlite3_prepare_v2(db_, insert, -1, &statement_, nullptr) == SQLITE_OK, "prepare");
  }
  ~Inserts() {
    sqlite3_finalize(statement_);
    sqlite3_close(db_);
  }
  Inserts(const Inserts&) = delete;
  Inserts& operator=(const Inserts&) = delete;

  void execute(const char* sql) {
    require(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
  }
  void text(int column, const char* value) {
    sqlite3_bind_text(statement_, column, value == nullptr ? "" : value, -1, SQLITE_STATIC);
  }
  void number(int column, json_int_t value) { sqlite3_bind_int64(statement_, column, value); }
  void real(int column, double value) { sqlite3_bind_double(statement_, column, value); }
  void run() {
    require(sqlite3_step(statement_) == SQLITE_DONE, "insert");
    sqlite3_reset(statement_);
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* statement_ = nullptr;
};

const char* text_of(const json_t* object, const char* key) {
  return json_string_value(json_object_get(object, key));
}

json_int_t int_of(const json_t* object, const char* key) {
  return json_integer_value(json_object_get(object, key));
}

std::time_t time_of(const char* text) {
  std::tm utc{};
  return text != nullptr && strptime(text, "%Y-%m-%dT%H:%M:%S", &utc) != nullptr ? timegm(&utc)
                                                                                 : -1;
}

std::string time_text(std::time_t seconds) {
  char text[32];
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000Z", &utc);
  return text;
}

std::string key_of(json_int_t job, const char* backup) {
  return "data_" + std::to_string(job) + "_" + (backup == nullptr ? "" : backup);
}

void bind_unknown(Inserts& row, std::initializer_list<int> columns) {
  for (const int column : columns) row.number(column, -1);
}

void load_lines(const std::string& database, const std::string& file) {
  static const char* const kPolicies[] = {"Standard", "Unix-Files", "Windows-Files"};
  static const char* const kSchedules[] = {"FULL", "DIFFERENTIAL_INCREMENTAL"};
  Inserts row(database, kHistoryInsert);
  std::ifstream lines(file);
  const corvane::bench::Figures figures;
  row.execute("BEGIN");
  for (std::string line; std::getline(lines, line);) {
    json_t* image = json_loads(line.c_str(), 0, nullptr);
    require(image != nullptr, "a line is no JSON");
    const char* backup = text_of(image, "backupid");
    const json_int_t job = int_of(image, "job_id");
    const std::string key = key_of(job, backup);
    row.text(1, backup);
    row.number(2, int_of(image, "backup_time"));
    row.text(3, text_of(image, "client_name"));
    row.text(4, text_of(image, "policy_name"));
    row.text(5, kPolicies[int_of(image, "client_type") % 3]);
    row.text(6, kSchedules[int_of(image, "sched_type") % 2]);
    row.text(7, text_of(image, "sched_label"));
    row.text(8, "NONE");
    row.number(9, int_of(image, "num_files"));
    row.real(10, static_cast<double>(int_of(image, "kbytes")));
    row.number(11, job);
    bind_unknown(row, {12, 13, 14, 15, 16, 17, 19});
    row.number(18, 0);
    row.text(20, "NA");
    row.number(21, int_of(image, "stream_number"));
    row.text(22, text_of(image, "provider_generated_id"));
    row.text(23, key.c_str());
    row.run();
    json_decref(image);
  }
  row.execute("COMMIT");
  figures.print();
}

// One connection, one handle.
class Server {
 public:
  Server(const std::string& credentials, const std::string& server) : server_(server) {
    curl_global_init(CURL_GLOBAL_ALL);
    handle_ = curl_easy_init();
    const std::string connect_to = "::127.0.0.1:";
    connect_to_ = curl_slist_append(nullptr, connect_to.c_str());
    curl_easy_setopt(handle_, CURLOPT_CONNECT_TO, connect_to_);
    curl_easy_setopt(handle_, CURLOPT_CAINFO, (credentials + "/ca.pem").c_str());
    curl_easy_setopt(handle_, CURLOPT_SSLCERT, (credentials + "/host.pem").c_str());
    curl_easy_setopt(handle_, CURLOPT_SSLKEY, (credentials + "/host.key").c_str());
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &body_);
  }
  ~Server() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(connect_to_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  const std::string& get(const std::string& path) {
    body_.clear();
    curl_easy_setopt(handle_, CURLOPT_URL, ("https://" + server_ + ":1556/" + path).c_str());
    require(curl_easy_perform(handle_) == CURLE_OK, "the web service does not answer");
    return body_;
  }

 private:
  static std::size_t append(const char* data, std::size_t, std::size_t size, void* body) {
    static_cast<std::string*>(body)->append(data, size);
    return size;
  }

  std::string server_;
  CURL* handle_;
  curl_slist* connect_to_;
  std::string body_;
};

void insert_images(const json_t* page, Inserts& row) {
  const json_t* data = json_object_get(page, "data");
  for (std::size_t i = 0; i < json_array_size(data); ++i) {
    const json_t* element = json_array_get(data, i);
    const json_t* image = json_object_get(element, "attributes");
    const char* backup = text_of(element, "id");
    const json_int_t job = int_of(image, "jobId");
    const std::string key = key_of(job, backup);
    row.text(1, backup);
    row.number(2, time_of(text_of(image, "backupTime")));
    row.text(3, text_of(image, "clientName"));
    row.text(4, text_of(image, "policyName"));
    row.text(5, text_of(image, "policyType"));
    row.text(6, text_of(image, "scheduleType"));
    row.text(7, text_of(image, "scheduleName"));
    row.text(8, "NONE");
    row.number(9, int_of(image, "numFiles"));
    row.number(10, int_of(image, "kbytes"));
    row.number(11, job);
    bind_unknown(row, {12, 13, 14, 15, 16, 17, 19});
    row.number(18, 0);
    row.text(20, "NA");
    row.number(21, int_of(image, "streamNumber"));
    row.text(22, text_of(image, "providerGeneratedId"));
    row.text(23, key.c_str());
    row.run();
  }
}

// The offset of the next page; 0 when there is none.
json_int_t read_page(const std::string& body, Inserts& row) {
  json_t* page = json_loads(body.c_str(), 0, nullptr);
  require(page != nullptr, "a page is no JSON");
  insert_images(page, row);
  const json_int_t offset =
      int_of(json_object_get(json_object_get(page, "meta"), "pagination"), "next");
  json_decref(page);
  return offset;
}

json_int_t skip_page(const std::string& body, Inserts& /*row*/) {
  constexpr std::string_view kNext = "\"next\":";
  const std::size_t next = body.rfind(kNext);
  return next == std::string::npos ? 0 : std::stoll(body.substr(next + kNext.size()));
}

void gather_history(const std::vector<std::string>& words,
                    json_int_t (*take)(const std::string& body, Inserts& row)) {
  Inserts row(words.at(2), kHistoryInsert);
  const std::time_t end = std::stoi(words.at(6));
  const corvane::bench::Figures figures;
  Server server(words.at(3), words.at(4));
  for (std::time_t at = std::stoi(words.at(5)); at < end; at += kSliceSeconds) {
    const std::string filter = "&page%5Blimit%5D=100&sort=-startTime&filter=backupTime%20ge%20" +
                               time_text(at) + "%20and%20backupTime%20le%20" +
                               time_text(std::min(at + kSliceSeconds, end) - 1);
    row.execute("BEGIN");
    json_int_t offset = 0;
    do {
      offset = take(
          server.get("corvane/catalog/images?page%5Boffset%5D=" + std::to_string(offset) + filter),
          row);
    } while (offset != 0);
    row.execute("COMMIT");
  }
  figures.print();
}

// The rows as they are to be, read beforehand; each its own commit.
void store_jobs(const std::string& database, const std::string& file) {
  std::ifstream lines(file);
  std::vector<json_t*> jobs;
  for (std::string line; std::getline(lines, line);) {
    jobs.push_back(json_loads(line.c_str(), 0, nullptr));
  }
  Inserts row(database, kWaitingInsert);
  const corvane::bench::Figures figures;
  for (const json_t* job : jobs) {
    const char* backup = text_of(job, "backupId");
    const json_int_t id = int_of(job, "jobId");
    const std::string key = key_of(id, backup);
    const std::time_t start = time_of(text_of(job, "startTime"));
    const std::time_t end = time_of(text_of(job, "endTime"));
    row.text(1, backup);
    row.number(2, time_of(text_of(job, "backupTime")));
    row.text(3, text_of(job, "clientName"));
    row.text(4, text_of(job, "policyName"));
    row.text(5, text_of(job, "policyType"));
    row.text(6, text_of(job, "scheduleType"));
    row.text(7, text_of(job, "scheduleName"));
    row.text(8, text_of(job, "applicationType"));
    row.number(9, int_of(job, "numFiles"));
    row.number(10, int_of(job, "kbytes"));
    row.number(11, id);
    row.number(12, int_of(job, "parentJobId"));
    row.number(13, int_of(job, "kilobytesTransferred"));
    row.number(14, start);
    row.number(15, end);
    row.number(16, end - start);
    row.real(17, json_number_value(json_object_get(job, "dedupRatio")));
    row.number(18, 1);
    row.number(19, 0);
    row.text(20, text_of(job, "destinationStorageUnitName"));
    row.number(21, int_of(job, "streamNumber"));
    row.text(22, text_of(job, "providerGeneratedId"));
    row.text(23, key.c_str());
    row.run();
  }
  figures.print();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> words(argv, argv + argc);
    const std::string work = words.at(1);
    if (work == "lines") {
      load_lines(words.at(2), words.at(3));
    } else if (work == "history") {
      gather_history(words, read_page);
    } else if (work == "fetch") {
      gather_history(words, skip_page);
    } else if (work == "store") {
      store_jobs(words.at(2), words.at(3));
    } else {
      throw std::invalid_argument("unknown work");
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "gather_limit: " << error.what() << "\n";
    return 1;
  }
}
