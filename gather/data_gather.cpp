#include "gather/data_gather.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <stdexcept>

namespace {

constexpr std::array<const char*, 51> kPolicyTypes{"Standard",
                                                   "Unix-Files",
                                                   "Windows-Files",
                                                   "Mac-Files",
                                                   "Raw-Device",
                                                   "Bare-Metal",
                                                   "NAS-Data-Protection",
                                                   "NAS-Dump",
                                                   "Object-Store",
                                                   "Cloud",
                                                   "Cloud-Volume",
                                                   "Cloud-Database",
                                                   "Virtual-Machine-Image",
                                                   "Hypervisor-KVM",
                                                   "Hypervisor-Xen",
                                                   "Container-Volume",
                                                   "Kubernetes",
                                                   "OpenStack",
                                                   "Relational-Database",
                                                   "PostgreSQL",
                                                   "MySQL",
                                                   "MariaDB",
                                                   "SQLite",
                                                   "Firebird",
                                                   "MongoDB",
                                                   "Cassandra",
                                                   "CouchDB",
                                                   "Redis",
                                                   "Elasticsearch",
                                                   "ClickHouse",
                                                   "InfluxDB",
                                                   "Hadoop",
                                                   "HBase",
                                                   "Ceph",
                                                   "Gluster",
                                                   "Lustre",
                                                   "Mail-Server",
                                                   "Directory-Service",
                                                   "Collaboration-Site",
                                                   "Message-Queue",
                                                   "Source-Repository",
                                                   "Snapshot",
                                                   "Snapshot-Replica",
                                                   "Continuous-Log",
                                                   "Synthetic",
                                                   "Catalog",
                                                   "Vault",
                                                   "Tape-Copy",
                                                   "Application-Script",
                                                   "Generic-Stream",
                                                   "UNKNOWN-50"};

constexpr std::array<const char*, 5> kScheduleTypes{
    "FULL", "DIFFERENTIAL_INCREMENTAL", "USER_BACKUP", "USER_ARCHIVE", "CUMULATIVE_INCREMENTAL"};

constexpr char kTimeFormat[] = "%Y-%m-%dT%H:%M:%S.000Z";

template <std::size_t count>
std::map<std::int32_t, std::string> by_code(const std::array<const char*, count>& names) {
  std::map<std::int32_t, std::string> table;
  std::int32_t code = 0;
  for (const char* name : names) table.emplace_hint(table.end(), code++, name);
  return table;
}

int number_at(const std::string& text, std::size_t position, std::size_t length) {
  // Thrown here because the library's own text differs between versions.
  if (position > text.size()) throw std::out_of_range("basic_string::substr");
  return corvane::to_int(text.substr(position, length));
}

}  // namespace

DataGather::DataGather(DBAccess* database, const std::string& location, const std::string& master)
    : db(database),
      db_location(location),
      master_server(master),
      deployutil_dir(get_cvdeployutil_dir()) {
  init_attributes();
}

void DataGather::set_detection_state(int state) { detection_state = state != 0; }

void DataGather::init_attributes() {
  policy_types = by_code(kPolicyTypes);
  schedule_types = by_code(kScheduleTypes);
  slp_policy_types = {"CLOUD", "NAS_DATA_PROTECTION"};
}

bool DataGather::validate_slp_policytype(const std::string& policy_type) {
  return std::ranges::find(slp_policy_types, policy_type) != slp_policy_types.end();
}

std::string DataGather::time_to_str(const int& seconds) {
  const std::time_t time = seconds;
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 80> buffer{};
  std::strftime(buffer.data(), buffer.size(), kTimeFormat, &utc);
  return buffer.data();
}

int DataGather::str_to_time(const std::string& text) {
  std::tm utc{};
  utc.tm_year = number_at(text, 0, 4) - 1900;
  utc.tm_mon = number_at(text, 5, 2) - 1;
  utc.tm_mday = number_at(text, 8, 2);
  utc.tm_hour = number_at(text, 11, 2);
  utc.tm_min = number_at(text, 14, 2);
  utc.tm_sec = number_at(text, 17, 2);
  return static_cast<int>(timegm(&utc));
}

std::string DataGather::policy_type_name(const std::string& code) {
  return policy_types[corvane::to_int(code)];
}

std::string DataGather::schedule_type_name(const std::string& code) {
  return schedule_types[corvane::to_int(code)];
}
