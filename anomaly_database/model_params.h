// The radius that the detection uses for each stream (DBSCAN_MODEL_PARAMS), kept for people to
// read.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "anomaly_database/stream_key.h"
#include "sqlite/connection.h"

namespace corvane {

// `stream`: StreamKey::text(). Both throw QueryError.
void read_eps(Connection& database,
              const std::function<void(const std::string& stream, double eps)>& visit);
void store_eps(Connection& database, const StreamKey& stream, double eps, std::int64_t now);

}  // namespace corvane
