#include "util/scratch_file.h"

#include <utility>

#include "util/file.h"

namespace corvane {

ScratchFile::ScratchFile(std::string path) : path_(std::move(path)) { File::Delete(path_); }

ScratchFile::~ScratchFile() { File::Delete(path_); }

}  // namespace corvane
