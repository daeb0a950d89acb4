#include "embedded_host/collection.h"

namespace corvane::host {

namespace {

using enum AttributeKind;

constexpr std::int64_t kPage = 100;
constexpr std::int64_t kMaxPage = 1000;
// Readers of the anomalies fetch all of them with one request without a limit.
constexpr std::int64_t kMaxAnomalies = 100'000;

#define CV_DONE "end_time<=?2"
#define CV_PERCENT      \
  "(CASE WHEN " CV_DONE \
  " THEN 100 ELSE min(99,max(0,(?1-start_time)*100/max(1,end_time-start_time))) END)"

constexpr FilterAttribute kImageAttributes[] = {
    {"clientName", "client_name", kText},
    {"policyName", "policy_name", kText},
    {"policyType", "policy_type", kText},
    {"scheduleName", "schedule_name", kText},
    {"scheduleType", "schedule_type", kText},
    {"backupTime", "backup_time", kTime},
    {"jobId", "job_id", kInteger},
    {"numFiles", "num_files", kInteger},
    {"kbytes", "kbytes", kInteger},
    {"streamNumber", "stream_number", kInteger},
    {"providerGeneratedId", "provider_generated_id", kText},
    // Not written to elements: gathers sort images by an attribute of jobs, which for an image is
    // its backup time.
    {"startTime", "backup_time", kTime},
    {"backupId", "backup_id", kText},
};
constexpr std::size_t kImageHidden = 2;

constexpr FilterAttribute kJobAttributes[] = {
    {"jobId", "job_id", kInteger},
    {"parentJobId", "parent_job_id", kInteger},
    {"jobType", "job_type", kText},
    {"state", "(CASE WHEN " CV_DONE " THEN state ELSE 'ACTIVE' END)", kText},
    {"status", "(CASE WHEN " CV_DONE " THEN status ELSE 0 END)", kInteger},
    {"clientName", "client_name", kText},
    {"policyName", "policy_name", kText},
    {"policyType", "policy_type", kText},
    {"scheduleName", "schedule_name", kText},
    {"scheduleType", "schedule_type", kText},
    {"backupId", "backup_id", kText},
    {"startTime", "start_time", kTime},
    {"endTime", "(CASE WHEN " CV_DONE " THEN end_time ELSE 0 END)", kTime},
    {"kilobytesTransferred", "(kilobytes_transferred*" CV_PERCENT "/100)", kInteger},
    {"numberOfFiles", "(number_of_files*" CV_PERCENT "/100)", kInteger},
    {"dedupRatio", "dedup_ratio", kReal},
    {"streamNumber", "stream_number", kInteger},
    {"destinationStorageUnitName", "destination_storage_unit_name", kText},
    {"applicationType", "application_type", kText},
    {"percentComplete", CV_PERCENT, kInteger},
};

constexpr FilterAttribute kReportAttributes[] = {
    {"type", "type", kText},
    {"id", "id", kText},
};

constexpr std::span<const FilterAttribute> kImages(kImageAttributes);

constexpr Collection kCollections[] = {
    {.path = "corvane/catalog/images",
     .table = "backups",
     .visible = "backup_id <> '' AND end_time<=?1",
     .type = "'image'",
     .id = "backup_id",
     .attributes = kImages.first(kImages.size() - kImageHidden),
     .filterable = kImages,
     .json_attributes = "",
     .default_order = "backup_time DESC,backup_id DESC",
     .tie_break = "backup_id",
     .default_limit = kPage,
     .max_limit = kMaxPage,
     .has_single_elements = true,
     .takes_reports = false},
    {.path = "corvane/admin/jobs",
     .table = "backups",
     .visible = "start_time<=?1",
     .type = "'job'",
     .id = "job_id",
     .attributes = kJobAttributes,
     .filterable = kJobAttributes,
     .json_attributes = "",
     .default_order = "start_time DESC,job_id DESC",
     .tie_break = "job_id",
     .default_limit = kPage,
     .max_limit = kMaxPage,
     .has_single_elements = false,
     .takes_reports = false},
    {.path = "corvane/wui/anomalies",
     .table = "reports",
     .visible = "1",
     .type = "type",
     .id = "id",
     .attributes = {},
     .filterable = kReportAttributes,
     .json_attributes = "attributes",
     .default_order = "type DESC,number",  // feedback first: a full page does not cut it off
     .tie_break = "number",
     .default_limit = kMaxAnomalies,
     .max_limit = kMaxAnomalies,
     .has_single_elements = false,
     .takes_reports = true},
};

#undef CV_DONE
#undef CV_PERCENT

}  // namespace

std::span<const Collection> collections() { return kCollections; }

}  // namespace corvane::host
