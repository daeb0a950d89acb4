// Prints a document of the settings on standard output, for the build and for tests.
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "config/settings_documents.h"

namespace {

constexpr char kUsage[] = "usage: settings_documents sample FILE | manual FILE | guide | json\n";

std::string content_of(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  if (content.str().empty()) throw std::runtime_error(std::string("cannot read ") + path);
  return content.str();
}

std::string document(const std::string& name, const char* around) {
  if (name == "guide" && around == nullptr) return corvane::settings_guide();
  if (name == "json" && around == nullptr) return corvane::settings_json();
  if (name == "sample" && around != nullptr) return corvane::sample_file(content_of(around));
  if (name == "manual" && around != nullptr) return corvane::manual_page(content_of(around));
  throw std::runtime_error(kUsage);
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    if (argc < 2 || argc > 3) throw std::runtime_error(kUsage);
    std::cout << document(argv[1], argv[2]) << std::flush;
    return std::cout ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "settings_documents: " << error.what() << "\n";
    return 1;
  }
}
