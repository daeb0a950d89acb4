// The idle connections of this process.
#include <iterator>
#include <list>
#include <mutex>
#include <utility>

#include "platform/https_connection.h"

namespace corvane {

namespace {

constexpr std::size_t kMostIdle = 8;

using Connections = std::list<std::unique_ptr<HttpsConnection>>;

struct Pool {
  std::mutex mutex;
  Connections idle;  // the oldest first
};

// Never destroyed: the kernel closes the connections at the end of the process, and the order of
// destruction does not matter.
Pool& pool() {
  static Pool& the_pool = *new Pool;
  return the_pool;
}

}  // namespace

std::unique_ptr<HttpsConnection> take_connection(const HttpsEndpoint& endpoint,
                                                 const CredentialsStamp& stamp) {
  Connections outdated;  // closed after the lock is given up
  const std::lock_guard guard(pool().mutex);
  Connections& idle = pool().idle;
  for (auto it = idle.begin(); it != idle.end();) {
    const auto current = it++;
    if (!(*current)->leads_to(endpoint)) continue;
    if ((*current)->serves(endpoint, stamp)) {
      std::unique_ptr<HttpsConnection> found = std::move(*current);
      idle.erase(current);
      return found;
    }
    outdated.splice(outdated.end(), idle, current);
  }
  return std::make_unique<HttpsConnection>(endpoint, stamp);
}

void keep_connection(std::unique_ptr<HttpsConnection> connection) {
  Connections surplus;  // closed after the lock is given up
  const std::lock_guard guard(pool().mutex);
  Connections& idle = pool().idle;
  idle.push_back(std::move(connection));
  if (idle.size() > kMostIdle) surplus.splice(surplus.end(), idle, idle.begin());
}

}  // namespace corvane
