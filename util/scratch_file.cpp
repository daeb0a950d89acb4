#include "util/scratch_file.h"

#include <utility>

#include "util/directory.h"

namespace corvane {

// Not by File::Delete, which first opens the file: it would have to be kept when there is no memory
// or no descriptor left.
ScratchFile::ScratchFile(std::string path) : path_(std::move(path)) {
  Directory::UnlinkFile(path_);
}

ScratchFile::~ScratchFile() { Directory::UnlinkFile(path_); }

}  // namespace corvane
