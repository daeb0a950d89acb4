// How the records of each way of gathering become rows: one function for each.
//
// They differ in the names of members, and in the value of an absent member. With REST the row
// keeps its default (-1, "NONE", "NA"). In the tools' records an absent member counts as empty: a
// text is "", a number 0. Either way an empty asset id counts as absent. Records are not changed.
//
// The names of policy and schedule types come from `gather`; unknown codes are added to its tables.
#pragma once

#include "anomaly_database/backup_row.h"
#include "gather/backup_record.h"
#include "gather/data_gather.h"

namespace corvane {

// An image of the REST interface, or a job completed by its image; types are names. Kilobytes are
// an integer, the deduplication ratio is a real. The caller sets mode, status and total time.
// Throws std::out_of_range for a truncated time.
BackupRow row_of_rest_record(DataGather& gather, const BackupRecord& record);

// An image of the image-list tool, for the history. Kilobytes are a real. What the list does not
// have (job times, deduplication, destination) keeps the row's defaults, except that the ratio is
// the integer -1.
BackupRow row_of_listed_image(DataGather& gather, const BackupRecord& image);

// A job of the jobs tool completed by its image of the image-list tool, live and waiting for the
// detection. Kilobytes and the deduplication ratio are reals, the ratio -1.0 if absent. An unknown
// image is an empty record.
BackupRow row_of_tool_job(DataGather& gather, const BackupRecord& job, const BackupRecord& image);

}  // namespace corvane
