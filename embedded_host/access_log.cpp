#include "embedded_host/access_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

#include "embedded_host/iso_time.h"
#include "embedded_host/json_writer.h"

namespace corvane::host {

AccessLog::AccessLog(const std::string& path) {
  if (path.empty()) return;
  file_.reset(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640));
  if (!file_.is_open()) throw std::system_error(errno, std::generic_category(), path);
}

void AccessLog::write(const AccessRecord& record) {
  if (!file_.is_open()) return;
  const std::string line = iso_time(std::time(nullptr)) + " " + record.client + " " +
                           std::string(record.certificate) + " \"" +
                           printable(record.method + " " + record.target) + "\" " +
                           std::to_string(record.status) + " " + std::to_string(record.bytes) +
                           " " + std::to_string(record.duration.count()) + "ms\n";
  [[maybe_unused]] const ssize_t written = ::write(file_.get(), line.data(), line.size());
}

}  // namespace corvane::host
