// What the numbers in status columns of the anomaly database mean.
#pragma once

namespace corvane {

// DATA_TO_PROCESS.PROCESSED_STATUS. kNormal: every verdict but anomalous; such a backup is in the
// history too, unless it was purged there.
enum class ProcessedStatus { kWaiting = 0, kNormal = 1, kAnomalous = 2 };

// HIST_DATA.USER_IDENTIFIED_CLUSTER of a backup that the detection accepted. Any other number: an
// anomalous backup that people called a false positive, in a cluster of its own.
inline constexpr int kNoCluster = -1;

// HIST_DATA.MODE and DATA_TO_PROCESS.MODE: how the record was gathered.
enum class GatherMode { kHistorical = 0, kLive = 1 };

// ANOMALY_DATA_FEEDBACK.FEEDBACK.
enum class Feedback { kNoFalsePositive = 0, kFalsePositive = 1 };

// ANOMALY_DATA.PROCESSED.
enum class AnomalyStatus { kUnprocessed = 0, kProcessed = 1 };

}  // namespace corvane
