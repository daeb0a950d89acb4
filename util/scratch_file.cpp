#include "util/scratch_file.h"

#include <utility>

#include "util/directory.h"

namespace corvane {

// Not with File::Delete, which opens the file first: without memory or a free descriptor the file
// would stay.
ScratchFile::ScratchFile(std::string path) : path_(std::move(path)) {
  Directory::UnlinkFile(path_);
}

ScratchFile::~ScratchFile() { Directory::UnlinkFile(path_); }

}  // namespace corvane
