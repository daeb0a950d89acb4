#include "embedded_host/code_tables.h"

#include <algorithm>
#include <array>
#include <span>

namespace corvane::host {

namespace {

constexpr std::array<std::string_view, 51> kPolicyTypes = {
    "STANDARD",
    "UNIX_FILES",
    "WINDOWS_FILES",
    "MAC_FILES",
    "RAW_DEVICE",
    "BARE_METAL",
    "NAS_DATA_PROTECTION",
    "NAS_DUMP",
    "OBJECT_STORE",
    "CLOUD",
    "CLOUD_VOLUME",
    "CLOUD_DATABASE",
    "VIRTUAL_MACHINE_IMAGE",
    "HYPERVISOR_KVM",
    "HYPERVISOR_XEN",
    "CONTAINER_VOLUME",
    "KUBERNETES",
    "OPENSTACK",
    "RELATIONAL_DATABASE",
    "POSTGRESQL",
    "MYSQL",
    "MARIADB",
    "SQLITE",
    "FIREBIRD",
    "MONGODB",
    "CASSANDRA",
    "COUCHDB",
    "REDIS",
    "ELASTICSEARCH",
    "CLICKHOUSE",
    "INFLUXDB",
    "HADOOP",
    "HBASE",
    "CEPH",
    "GLUSTER",
    "LUSTRE",
    "MAIL_SERVER",
    "DIRECTORY_SERVICE",
    "COLLABORATION_SITE",
    "MESSAGE_QUEUE",
    "SOURCE_REPOSITORY",
    "SNAPSHOT",
    "SNAPSHOT_REPLICA",
    "CONTINUOUS_LOG",
    "SYNTHETIC",
    "CATALOG",
    "VAULT",
    "TAPE_COPY",
    "APPLICATION_SCRIPT",
    "GENERIC_STREAM",
    "UNKNOWN_50",
};

constexpr std::array<std::string_view, 5> kScheduleTypes = {
    "FULL", "DIFFERENTIAL_INCREMENTAL", "USER_BACKUP", "USER_ARCHIVE", "CUMULATIVE_INCREMENTAL",
};

std::optional<int> index_of(std::span<const std::string_view> names, std::string_view name) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<int>(found - names.begin());
}

}  // namespace

std::optional<int> policy_type_code(std::string_view name) { return index_of(kPolicyTypes, name); }

std::optional<int> schedule_type_code(std::string_view name) {
  return index_of(kScheduleTypes, name);
}

}  // namespace corvane::host
