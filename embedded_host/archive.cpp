#include "embedded_host/archive.h"

#include <filesystem>

#include "embedded_host/image_list.h"
#include "embedded_host/json_writer.h"
#include "embedded_host/text_output.h"
#include "platform/c_handles.h"

namespace corvane::host {

namespace {

namespace fs = std::filesystem;

// A new folder, removed with its content unless it gets its final name.
class PartialFolder {
 public:
  explicit PartialFolder(const fs::path& root) {
    std::string pattern = root / ".partial-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), root.string());
    }
    path_ = pattern;
    fs::permissions(path_, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                               fs::perms::others_read | fs::perms::others_exec);
  }
  ~PartialFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);  // nothing has this name once it is renamed
  }
  PartialFolder(const PartialFolder&) = delete;
  PartialFolder& operator=(const PartialFolder&) = delete;

  template <typename Write>
  void add_file(const char* name, Write write) const {
    const std::string path = path_ / name;
    FilePtr file(std::fopen(path.c_str(), "wbe"));
    if (file == nullptr) throw std::system_error(errno, std::generic_category(), path);
    write(file.get());
    if (std::fclose(file.release()) != 0) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }

  // Fails if a folder with content already exists.
  void rename_to(const fs::path& path) const { fs::rename(path_, path); }

 private:
  fs::path path_;
};

}  // namespace

std::string write_archive(Connection& catalog, const ArchiveRequest& request, std::int64_t now) {
  if (request.master.empty() || request.master.find('/') != std::string::npos) {
    throw std::runtime_error("'" + printable(request.master) + "' is not a server's name");
  }
  const fs::path root(request.root);
  const fs::path path = root / (request.master + "-" + std::to_string(request.start) + "-" +
                                std::to_string(request.end));
  if (fs::exists(path)) throw std::runtime_error(path.string() + ": exists already");
  fs::create_directories(root);

  PartialFolder folder(root);
  folder.add_file("qpimagelist.out", [&](std::FILE* out) {
    write_image_list(catalog, request.start, request.end, now, out);
  });
  folder.add_file("gather_options.json", [&](std::FILE* out) {
    std::string options;
    JsonObject object(options);
    object.add("start", request.start);
    object.add("end", request.end);
    object.close();
    write_all(out, options + "\n");
  });
  folder.add_file("master.txt", [&](std::FILE* out) { write_all(out, request.master); });
  folder.rename_to(path);
  return path;
}

}  // namespace corvane::host
