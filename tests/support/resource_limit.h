// A limit of this process that is lower for a while.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace corvane::test {

// Of a resource of setrlimit(2), as RLIMIT_NOFILE.
template <auto kResource>
class ResourceLimit {
 public:
  explicit ResourceLimit(std::size_t limit) {
    getrlimit(kResource, &former_);
    const rlimit lower{limit, former_.rlim_max};
    setrlimit(kResource, &lower);
  }
  ~ResourceLimit() { setrlimit(kResource, &former_); }
  ResourceLimit(const ResourceLimit&) = delete;
  ResourceLimit& operator=(const ResourceLimit&) = delete;

 private:
  rlimit former_{};
};

}  // namespace corvane::test
