#include "anomaly_database/model_params.h"

namespace corvane {

void read_eps(Connection& database,
              const std::function<void(const std::string& stream, double eps)>& visit) {
  static constexpr char kSql[] = "SELECT EPS, " STREAM_KEY_COLUMNS " FROM DBSCAN_MODEL_PARAMS";
  Query& rows = database.query(kSql);
  while (rows.step()) visit(read_stream_key(rows, 1).text(), rows.real(0));
}

void store_eps(Connection& database, const StreamKey& stream, double eps, std::int64_t now) {
  static constexpr char kSql[] =
      "INSERT OR REPLACE INTO DBSCAN_MODEL_PARAMS (" STREAM_KEY_COLUMNS
      ", EPS, CAPTURE_DATE, ASSET_ID) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 'NA')";
  Query& query = database.query(kSql);
  bind_stream_key(query, stream);
  query.bind(eps).bind(now).run();
}

}  // namespace corvane
