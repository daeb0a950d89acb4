#include "operator_tool/report/report.h"

#include <openssl/evp.h>

#include <array>
#include <utility>
#include <vector>

#include "health/trouble.h"
#include "operator_tool/report/report_parts.h"

namespace corvane::ctl {

namespace {

// "'sha256-...'", as a content security policy names an inline script or style.
std::string source_hash(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size{};
  if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw health::Trouble(health::ExitStatus::kFailed, "SHA-256 is not available on this machine.");
  }
  std::array<unsigned char, std::size_t{2} * EVP_MAX_MD_SIZE> base64{};
  const int length = EVP_EncodeBlock(base64.data(), digest.data(), static_cast<int>(size));
  return "'sha256-" +
         std::string(reinterpret_cast<const char*>(base64.data()),
                     static_cast<std::size_t>(length)) +
         "'";
}

std::string policy() {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; style-src " +
         source_hash(kReportStyle) + "; script-src " + source_hash(kChartLibrary) + " " +
         source_hash(kReportWords) + " " + source_hash(kReportScript);
}

// A JSON document without "<" means the same.
std::string without_markup(std::string_view json) {
  std::string text;
  for (const char letter : json) {
    if (letter == '<') {
      text += "\\u003c";
    } else {
      text += letter;
    }
  }
  return text;
}

}  // namespace

std::string report_page(std::string_view json) {
  const std::vector<std::pair<std::string_view, std::string>> parts{
      {"{{policy}}", policy()},
      {"{{style}}", std::string(kReportStyle)},
      {"{{data}}", without_markup(json)},
      {"{{chart}}", std::string(kChartLibrary)},
      {"{{words}}", std::string(kReportWords)},
      {"{{script}}", std::string(kReportScript)}};
  std::string page;
  std::string_view rest = kReportPage;
  for (const auto& [name, content] : parts) {  // in the page's order
    const std::size_t at = rest.find(name);
    page += rest.substr(0, at);
    page += content;
    rest.remove_prefix(at + name.size());
  }
  page += rest;
  return page;
}

}  // namespace corvane::ctl
