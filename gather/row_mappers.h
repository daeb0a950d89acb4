// How the record of each way of gathering becomes a row: three functions, side by side.
//
// They differ in the names of the members, and in what an absent member gives. With REST it leaves
// the row's own default (-1, "NONE", "NA"). The tools' records read as if it were there and empty:
// a text is "", a number 0. Either way an empty asset id counts as absent. Records are not changed.
//
// The names of policy and schedule types come from `gather`, whose tables gain the codes that they
// lack.
#pragma once

#include "anomaly_database/backup_row.h"
#include "gather/backup_record.h"
#include "gather/data_gather.h"

namespace corvane {

// An image, or a job completed by its image, of the REST interface; types come by name. Kilobytes
// are an integer, the deduplication ratio is a real. Mode, status and total time are left to the
// caller. Throws std::out_of_range for a time text that is cut short.
BackupRow row_of_rest_record(DataGather& gather, const BackupRecord& record);

// An image of the image-list tool, for the history. Kilobytes are a real; what the list does not
// know (job times, deduplication, destination) keeps the row's defaults, but that the ratio is the
// integer -1.
BackupRow row_of_listed_image(DataGather& gather, const BackupRecord& image);

// A job of the jobs tool completed by its image of the image-list tool, live and waiting for the
// detection. Kilobytes and the deduplication ratio are reals, the ratio -1.0 when absent. An image
// that is not known is an empty record.
BackupRow row_of_tool_job(DataGather& gather, const BackupRecord& job, const BackupRecord& image);

}  // namespace corvane
