// Owning pointers for the C handles of the system, each wrapped once.
#pragma once

#include <curl/curl.h>
#include <dirent.h>
#include <jansson.h>

#include <cstdio>
#include <memory>

namespace corvane {

struct ReleaseHandle {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
  void operator()(DIR* handle) const noexcept { closedir(handle); }
  void operator()(std::FILE* handle) const noexcept { std::fclose(handle); }
  void operator()(json_t* handle) const noexcept { json_decref(handle); }
};

using CurlPtr = std::unique_ptr<CURL, ReleaseHandle>;
using DirPtr = std::unique_ptr<DIR, ReleaseHandle>;
using FilePtr = std::unique_ptr<std::FILE, ReleaseHandle>;
using JsonPtr = std::unique_ptr<json_t, ReleaseHandle>;

}  // namespace corvane
